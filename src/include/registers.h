// The configuration registers of routers and adapters, in the order of their blocks and offsets. Each layout names the
// fields that this driver uses; what stands as Kept is nobody's business here.
#pragma once
#include "include/register.h"

struct RouterSpace : RegisterBlock<USB4_CFG_SPACE_ROUTER> {};
struct RouterTmuCapability : RegisterBlock<USB4_CFG_SPACE_ROUTER> {};
struct PlugEventsCapability : RegisterBlock<USB4_CFG_SPACE_ROUTER> {};
struct LinkControllerCapability : RegisterBlock<USB4_CFG_SPACE_ROUTER> {};
struct LinkControllerPortBlock : RegisterBlock<USB4_CFG_SPACE_ROUTER> {};
struct AdapterSpace : RegisterBlock<USB4_CFG_SPACE_ADAPTER> {};
struct LaneCapability : RegisterBlock<USB4_CFG_SPACE_ADAPTER> {};
struct AdapterTmuCapability : RegisterBlock<USB4_CFG_SPACE_ADAPTER> {};
struct ProtocolCapability : RegisterBlock<USB4_CFG_SPACE_ADAPTER> {};
struct Usb4PortCapability : RegisterBlock<USB4_CFG_SPACE_ADAPTER> {};
struct PathSpace : RegisterBlock<USB4_CFG_SPACE_PATH> {};
struct CounterSpace : RegisterBlock<USB4_CFG_SPACE_COUNTERS> {};

// --- Router space

inline constexpr std::uint32_t kRouterHeaderDwords = 5;

struct RouterCs0 : Register<RouterSpace, 0> {
  using VendorId = Field<15, 0>;
  using DeviceId = Field<31, 16>;
  static_assert(kTiles<VendorId, DeviceId>);
};

struct RouterCs1 : Register<RouterSpace, 1> {
  using FirstCapability = Field<7, 0>;
  using UpstreamAdapter = Field<13, 8>;
  using MaximumAdapter = Field<19, 14>;
  using Depth = Field<22, 20>;
  using Revision = Field<31, 24>;
  static_assert(kTiles<FirstCapability, UpstreamAdapter, MaximumAdapter, Depth, Kept<23>, Revision>);
};

struct RouterCs2 : Register<RouterSpace, 2> {
  using RouteLow = Field<31, 0>;
  static_assert(kTiles<RouteLow>);
};

struct RouterCs3 : Register<RouterSpace, 3> {
  using RouteHigh = Field<30, 0>;  // route string bits 62:32
  using ConfigurationValid = Bit<31>;
  static_assert(kTiles<RouteHigh, ConfigurationValid>);
};

struct RouterCs4 : Register<RouterSpace, 4> {
  using NotificationTimeout = Field<7, 0>;  // milliseconds between two sendings of the same notification
  using ManagerVersion = Field<15, 8>;      // of USB4, as the connection manager declares it
  using Usb4Version = Field<31, 24>;
  static_assert(kTiles<NotificationTimeout, ManagerVersion, Kept<23, 16>, Usb4Version>);
};

struct RouterCs5 : Register<RouterSpace, 5> {
  using EnterSleep = Bit<0>;
  using WakeOnPcie = Bit<1>;
  using WakeOnUsb3 = Bit<2>;
  using WakeOnDisplayPort = Bit<3>;
  using ManagerSupportsTbt3 = Bit<23>;
  using PcieTunnelling = Bit<24>;
  using Usb3Tunnelling = Bit<25>;
  using InternalHostController = Bit<26>;
  using ConfigurationValid = Bit<31>;
  static_assert(kTiles<EnterSleep, WakeOnPcie, WakeOnUsb3, WakeOnDisplayPort, Kept<22, 4>, ManagerSupportsTbt3,
                       PcieTunnelling, Usb3Tunnelling, InternalHostController, Kept<30, 27>, ConfigurationValid>);
};

struct RouterCs6 : Register<RouterSpace, 6> {
  using SleepReady = Bit<0>;
  using Tbt3NotSupported = Bit<1>;
  using WokenByPcie = Bit<2>;
  using WokenByUsb3 = Bit<3>;
  using InternalHostController = Bit<18>;
  using ConfigurationReady = Bit<25>;
  static_assert(kTiles<SleepReady, Tbt3NotSupported, WokenByPcie, WokenByUsb3, Kept<17, 4>, InternalHostController,
                       Kept<24, 19>, ConfigurationReady, Kept<31, 26>>);
};

using RouterUid = RegisterArray<RouterSpace, 7, 2>;  // low dword first
using RouterOperationData = RegisterArray<RouterSpace, 9, 16>;
using RouterOperationMetadata = RegisterArray<RouterSpace, 25, 1>;

struct RouterCs26 : Register<RouterSpace, 26> {
  using Opcode = Field<15, 0>;
  using Status = Field<29, 24>;
  using NotSupported = Bit<30>;
  using OperationValid = Bit<31>;  // set to start; the router clears it when it has done
  static_assert(kTiles<Opcode, Kept<23, 16>, Status, NotSupported, OperationValid>);
};

// The metadata of a DROM read.
struct DromReadMetadata : Register<RouterSpace, RouterOperationMetadata::kOffset> {
  using DwordAddress = Field<14, 2>;
  using DwordCount = Field<19, 15>;
  static_assert(kTiles<Kept<1, 0>, DwordAddress, DwordCount, Kept<31, 20>>);
};

// The first word of every capability in router space.
struct RouterCapability : Register<RouterSpace, 0> {
  using Next = Field<7, 0>;
  using Id = Field<15, 8>;
  using VendorSpecificId = Field<23, 16>;
  using ShortLength = Field<31, 24>;  // 0: the long form follows
  static_assert(kTiles<Next, Id, VendorSpecificId, ShortLength>);
};

// The second word of a vendor-specific capability in its long form.
struct RouterCapabilityLong : Register<RouterSpace, 1> {
  using Next = Field<15, 0>;
  static_assert(kTiles<Next, Kept<31, 16>>);
};

inline constexpr std::uint32_t kRouterCapabilityTmu = 3;
inline constexpr std::uint32_t kRouterCapabilityVendorSpecific = 5;
inline constexpr std::uint32_t kVendorSpecificPlugEvents = 1;  // also the way to the EEPROM
inline constexpr std::uint32_t kVendorSpecificLinkController = 6;

// --- Time management unit of a router

struct RouterTmuCs0 : Register<RouterTmuCapability, 0> {
  using TimeDisruption = Bit<27>;
  using UnidirectionalCapable = Bit<30>;
  static_assert(kTiles<Kept<26, 0>, TimeDisruption, Kept<29, 28>, UnidirectionalCapable, Kept<31>>);
};

struct RouterTmuCs1 : Register<RouterTmuCapability, 1> {
  using TimeLow = Field<31, 16>;  // local time bits 15:0
  static_assert(kTiles<Kept<15, 0>, TimeLow>);
};

struct RouterTmuCs2 : Register<RouterTmuCapability, 2> {
  using TimeMiddle = Field<31, 0>;  // local time bits 47:16
  static_assert(kTiles<TimeMiddle>);
};

struct RouterTmuCs3 : Register<RouterTmuCapability, 3> {
  using TimeHigh = Field<15, 0>;  // local time bits 63:48
  using Rate = Field<31, 16>;     // interval of the time-sync packets
  static_assert(kTiles<TimeHigh, Rate>);
};

using RouterTmuLocalTime = RegisterArray<RouterTmuCapability, 1, 3>;
using RouterTmuPostLocalTime = RegisterArray<RouterTmuCapability, 22, 2>;  // low dword first
using RouterTmuPostTime = RegisterArray<RouterTmuCapability, 24, 2>;       // 0 once the router has taken it

// --- Plug events and EEPROM of a Thunderbolt 3 router

struct PlugEventsCs1 : Register<PlugEventsCapability, 1> {
  using LowMask = Bit<2>;  // set in both states
  using HighMask = Field<6, 3>;
  static_assert(kTiles<Kept<1, 0>, LowMask, HighMask, Kept<31, 7>>);
};

struct EepromControl : Register<PlugEventsCapability, 4> {
  using Clock = Bit<0>;
  using Deselect = Bit<1>;
  using DataOut = Bit<2>;  // to the EEPROM
  using DataIn = Bit<3>;   // from the EEPROM
  using BitBangEnable = Bit<4>;
  using Absent = Bit<5>;
  using Present = Bit<7>;
  static_assert(kTiles<Clock, Deselect, DataOut, DataIn, BitBangEnable, Absent, Kept<6>, Present, Kept<31, 8>>);
};

using PlugEventsBlock = RegisterArray<PlugEventsCapability, 0, 13>;
inline constexpr std::uint32_t kPlugEventsDromOffset = 12;  // byte offset of the DROM inside the EEPROM

// --- Link controller of a Thunderbolt 3 router

struct LinkControllerDescriptor : Register<LinkControllerCapability, 2> {
  using PortCount = Field<3, 0>;
  using FirstPort = Field<15, 8>;  // dwords from the capability's start
  using PortSize = Field<27, 16>;
  static_assert(kTiles<PortCount, Kept<7, 4>, FirstPort, PortSize, Kept<31, 28>>);
};

using LinkControllerUuid = RegisterArray<LinkControllerCapability, 3, 4>;

struct LinkControllerSinks : Register<LinkControllerCapability, 16> {
  using Sink0 = Field<3, 0>;
  using Sink1 = Field<7, 4>;
  static_assert(kTiles<Sink0, Sink1, Kept<31, 8>>);
};

struct LinkControllerPortAttributes : Register<LinkControllerPortBlock, 141> {
  using BondingPossible = Bit<12>;
  static_assert(kTiles<Kept<11, 0>, BondingPossible, Kept<31, 13>>);
};

struct LinkControllerPortControl : Register<LinkControllerPortBlock, 150> {
  using WakeOnConnect = Bit<1>;
  using WakeOnDisconnect = Bit<2>;
  using WakeOnUsb4 = Bit<5>;
  using WakeOnPcie = Bit<6>;
  using OddLaneConfigured = Bit<16>;
  using OddLaneXdomain = Bit<17>;
  using EvenLaneConfigured = Bit<20>;
  using EvenLaneXdomain = Bit<21>;
  using UpstreamConfigured = Bit<30>;
  using EnterSleep = Bit<31>;
  static_assert(kTiles<Kept<0>, WakeOnConnect, WakeOnDisconnect, Kept<4, 3>, WakeOnUsb4, WakeOnPcie, Kept<15, 7>,
                       OddLaneConfigured, OddLaneXdomain, Kept<19, 18>, EvenLaneConfigured, EvenLaneXdomain,
                       Kept<29, 22>, UpstreamConfigured, EnterSleep>);
};

// --- Adapter space

inline constexpr std::uint32_t kAdapterHeaderDwords = 8;

struct AdpCs1 : Register<AdapterSpace, 1> {
  using FirstCapability = Field<7, 0>;
  using CounterSets = Field<18, 8>;
  static_assert(kTiles<FirstCapability, CounterSets, Kept<31, 19>>);
};

struct AdpCs2 : Register<AdapterSpace, 2> {
  using Type = Field<23, 0>;
  static_assert(kTiles<Type, Kept<31, 24>>);
  // The same 24 bits by their bytes.
  using Subtype = Field<7, 0>;
  using TypeVersion = Field<15, 8>;
  using Protocol = Field<23, 16>;
  static_assert(kTiles<Subtype, TypeVersion, Protocol, Kept<31, 24>>);
};

struct AdpCs4 : Register<AdapterSpace, 4> {
  using NfcBuffers = Field<9, 0>;  // non-flow-controlled
  using TotalBuffers = Field<29, 20>;
  using Lock = Bit<31>;
  static_assert(kTiles<NfcBuffers, Kept<19, 10>, TotalBuffers, Kept<30>, Lock>);
};

struct AdpCs5 : Register<AdapterSpace, 5> {
  using MaximumInputHop = Field<10, 0>;
  using MaximumOutputHop = Field<21, 11>;
  using LinkCredits = Field<28, 22>;
  using DisableHotPlug = Bit<31>;
  static_assert(kTiles<MaximumInputHop, MaximumOutputHop, LinkCredits, Kept<30, 29>, DisableHotPlug>);
};

// The first word of every capability in adapter space.
struct AdapterCapability : Register<AdapterSpace, 0> {
  using Next = Field<7, 0>;
  using Id = Field<15, 8>;
  static_assert(kTiles<Next, Id, Kept<31, 16>>);
};

inline constexpr std::uint32_t kAdapterCapabilityLane = 1;
inline constexpr std::uint32_t kAdapterCapabilityTmu = 3;
inline constexpr std::uint32_t kAdapterCapabilityProtocol = 4;
inline constexpr std::uint32_t kAdapterCapabilityUsb4Port = 6;

// Values of AdpCs2::Type: protocol, version and subtype, a byte each.
enum USB4_ADAPTER_TYPE : std::uint32_t {
  USB4_ADAPTER_INACTIVE = 0x000000,
  USB4_ADAPTER_LANE = 0x000001,
  USB4_ADAPTER_HOST_INTERFACE = 0x000002,
  USB4_ADAPTER_DP_IN = 0x0E0101,
  USB4_ADAPTER_DP_OUT = 0x0E0102,
  USB4_ADAPTER_PCIE_DOWNSTREAM = 0x100101,
  USB4_ADAPTER_PCIE_UPSTREAM = 0x100102,
  USB4_ADAPTER_USB3_DOWNSTREAM = 0x200101,
  USB4_ADAPTER_USB3_UPSTREAM = 0x200102,
};

// --- Lane adapter

struct LaneAdpCs0 : Register<LaneCapability, 0> {
  using SupportedSpeeds = Field<19, 16>;
  using SupportedWidths = Field<25, 20>;  // mask: 1 = x1, 2 = x2
  static_assert(kTiles<Kept<15, 0>, SupportedSpeeds, SupportedWidths, Kept<31, 26>>);
};

struct LaneAdpCs1 : Register<LaneCapability, 1> {
  using TargetSpeed = Field<3, 0>;
  using TargetWidth = Field<9, 4>;  // 1 = single lane, 3 = dual
  using LaneDisable = Bit<14>;
  using LaneBonding = Bit<15>;
  using CurrentSpeed = Field<19, 16>;  // 4 = 20 Gb/s per lane, any other 10
  using NegotiatedWidth = Field<25, 20>;
  using State = Field<29, 26>;
  static_assert(kTiles<TargetSpeed, TargetWidth, Kept<13, 10>, LaneDisable, LaneBonding, CurrentSpeed, NegotiatedWidth,
                       State, Kept<31, 30>>);
};

// --- Time management unit of an adapter

struct AdapterTmuCs3 : Register<AdapterTmuCapability, 3> {
  using Unidirectional = Bit<29>;
  static_assert(kTiles<Kept<28, 0>, Unidirectional, Kept<31, 30>>);
};

// --- USB4 port

struct PortCs18 : Register<Usb4PortCapability, 18> {
  using BondingEnabled = Bit<8>;
  using Tbt3Compatible = Bit<9>;
  using WakeStatus = Bit<18>;
  static_assert(kTiles<Kept<7, 0>, BondingEnabled, Tbt3Compatible, Kept<17, 10>, WakeStatus, Kept<31, 19>>);
};

struct PortCs19 : Register<Usb4PortCapability, 19> {
  using PortConfigured = Bit<3>;
  using XdomainConfigured = Bit<4>;
  using WakeOnConnect = Bit<16>;
  using WakeOnDisconnect = Bit<17>;
  using WakeOnUsb4 = Bit<18>;
  static_assert(kTiles<Kept<2, 0>, PortConfigured, XdomainConfigured, Kept<15, 5>, WakeOnConnect, WakeOnDisconnect,
                       WakeOnUsb4, Kept<31, 19>>);
};

// --- Protocol adapters

struct PcieAdpCs0 : Register<ProtocolCapability, 0> {
  using PathEnable = Bit<31>;
  static_assert(kTiles<Kept<30, 0>, PathEnable>);
};

struct Usb3AdpCs0 : Register<ProtocolCapability, 0> {
  using Valid = Bit<30>;
  using PathEnable = Bit<31>;
  static_assert(kTiles<Kept<29, 0>, Valid, PathEnable>);
};

// Bandwidths count units of 512 x 2^Scale bits per 125 us.
struct Usb3AdpCs1 : Register<ProtocolCapability, 1> {
  using ConsumedUpstream = Field<11, 0>;
  using ConsumedDownstream = Field<23, 12>;
  using RequestAcknowledged = Bit<31>;
  static_assert(kTiles<ConsumedUpstream, ConsumedDownstream, Kept<30, 24>, RequestAcknowledged>);
};

struct Usb3AdpCs2 : Register<ProtocolCapability, 2> {
  using AllocatedUpstream = Field<11, 0>;
  using AllocatedDownstream = Field<23, 12>;
  using ManagerRequest = Bit<31>;
  static_assert(kTiles<AllocatedUpstream, AllocatedDownstream, Kept<30, 24>, ManagerRequest>);
};

struct Usb3AdpCs3 : Register<ProtocolCapability, 3> {
  using Scale = Field<5, 0>;
  static_assert(kTiles<Scale, Kept<31, 6>>);
};

struct Usb3AdpCs4 : Register<ProtocolCapability, 4> {
  using ActualRate = Field<6, 0>;
  using ActualRateValid = Bit<7>;
  using MaximumRate = Field<18, 12>;
  static_assert(kTiles<ActualRate, ActualRateValid, Kept<11, 8>, MaximumRate, Kept<31, 19>>);
};

struct DpAdpCs0 : Register<ProtocolCapability, 0> {
  using VideoHop = Field<26, 16>;
  using AuxEnable = Bit<30>;
  using VideoEnable = Bit<31>;
  static_assert(kTiles<Kept<15, 0>, VideoHop, Kept<29, 27>, AuxEnable, VideoEnable>);
};

struct DpAdpCs1 : Register<ProtocolCapability, 1> {
  using AuxTransmitHop = Field<10, 0>;
  using AuxReceiveHop = Field<21, 11>;
  static_assert(kTiles<AuxTransmitHop, AuxReceiveHop, Kept<31, 22>>);
};

using DpAdpControl = RegisterArray<ProtocolCapability, 0, 2>;  // the two above in one access

struct DpAdpCs2 : Register<ProtocolCapability, 2> {
  using HotPlugDetect = Bit<6>;
  using Configuration = Field<19, 16>;  // of a DP IN adapter: the controller that it belongs to
  static_assert(kTiles<Kept<5, 0>, HotPlugDetect, Kept<15, 7>, Configuration, Kept<31, 20>>);
};

struct DpAdpCs3 : Register<ProtocolCapability, 3> {
  using HotPlugDetectClear = Bit<9>;
  static_assert(kTiles<Kept<8, 0>, HotPlugDetectClear, Kept<31, 10>>);
};

// What a DisplayPort end can do, or what both have agreed on.
template <std::uint32_t Offset>
struct DpCapabilities : Register<ProtocolCapability, Offset> {
  using Base = Register<ProtocolCapability, Offset>;
  using RateCode = typename Base::template Field<11, 8>;   // 0 = 1620 Mb/s per lane, 1 = 2700, 2 = 5400, 3 = 8100
  using LaneCode = typename Base::template Field<14, 12>;  // 0 = 1 lane, 1 = 2, 2 = 4
  using LongTrainingSupport = typename Base::template Bit<27>;
  using ReadDone = typename Base::template Bit<31>;
  static_assert(Base::template kTiles<typename Base::template Kept<7, 0>, RateCode, LaneCode,
                                      typename Base::template Kept<26, 15>, LongTrainingSupport,
                                      typename Base::template Kept<30, 28>, ReadDone>);
};
using DpAdpCs4 = DpCapabilities<4>;  // local
using DpAdpCs5 = DpCapabilities<5>;  // remote
using DpAdpCs7 = DpCapabilities<7>;  // negotiated; ReadDone: the display's have been read

struct DpAdpCs6 : Register<ProtocolCapability, 6> {
  using ManagerHandshake = Bit<25>;  // the adapter clears it
  using ManagerMode = Bit<26>;       // set together with the handshake
  static_assert(kTiles<Kept<24, 0>, ManagerHandshake, ManagerMode, Kept<31, 27>>);
};

// --- Path space: an entry of two words per input hop ID

inline constexpr std::uint32_t kPathEntryDwords = 2;
inline constexpr std::uint32_t kCounterSetDwords = 3;

// Of the hop ID h at 2 x h, of the counter index i at 3 x i.
using PathEntryWords = RegisterArray<PathSpace, 0, kPathEntryDwords>;
using CounterSet = RegisterArray<CounterSpace, 0, kCounterSetDwords>;

struct PathCs0 : Register<PathSpace, 0> {
  using OutputHop = Field<10, 0>;
  using OutputAdapter = Field<16, 11>;
  using InitialCredits = Field<24, 17>;
  using Valid = Bit<31>;
  static_assert(kTiles<OutputHop, OutputAdapter, InitialCredits, Kept<30, 25>, Valid>);
};

struct PathCs1 : Register<PathSpace, 1> {
  using Weight = Field<3, 0>;
  using Priority = Field<10, 8>;
  using DropPackets = Bit<11>;
  using CounterIndex = Field<22, 12>;
  using CounterEnable = Bit<23>;
  using IngressFlowControl = Bit<24>;
  using EgressFlowControl = Bit<25>;
  using IngressSharedBuffering = Bit<26>;
  using EgressSharedBuffering = Bit<27>;
  using Pending = Bit<28>;
  static_assert(kTiles<Weight, Kept<7, 4>, Priority, DropPackets, CounterIndex, CounterEnable, IngressFlowControl,
                       EgressFlowControl, IngressSharedBuffering, EgressSharedBuffering, Pending, Kept<31, 29>>);
};
