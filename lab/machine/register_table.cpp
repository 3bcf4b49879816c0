// Names for people beside the driver's own layouts. Rows follow the layouts' order; a field that a layout loses does
// not compile here.
#include "lab/machine/register_table.h"

#include "include/registers.h"

namespace lab {
namespace {

template <class Field>
std::uint32_t Get(std::uint32_t word) {
  return Field::Get(word);
}

template <class R>
RegisterRow Row(std::string_view name, std::vector<FieldRow> fields) {
  return {name, R::kOffset, std::move(fields)};
}

std::vector<RegisterRow> RouterSpaceRows() {
  return {
      Row<RouterCs0>("ROUTER_CS_0", {{"VendorId", Get<RouterCs0::VendorId>}, {"DeviceId", Get<RouterCs0::DeviceId>}}),
      Row<RouterCs1>("ROUTER_CS_1", {{"FirstCapability", Get<RouterCs1::FirstCapability>},
                                     {"UpstreamAdapter", Get<RouterCs1::UpstreamAdapter>},
                                     {"MaximumAdapter", Get<RouterCs1::MaximumAdapter>},
                                     {"Depth", Get<RouterCs1::Depth>},
                                     {"Revision", Get<RouterCs1::Revision>}}),
      Row<RouterCs2>("ROUTER_CS_2", {{"RouteLow", Get<RouterCs2::RouteLow>}}),
      Row<RouterCs3>("ROUTER_CS_3", {{"RouteHigh", Get<RouterCs3::RouteHigh>},
                                     {"ConfigurationValid", Get<RouterCs3::ConfigurationValid>}}),
      Row<RouterCs4>("ROUTER_CS_4", {{"NotificationTimeout", Get<RouterCs4::NotificationTimeout>},
                                     {"ManagerVersion", Get<RouterCs4::ManagerVersion>},
                                     {"Usb4Version", Get<RouterCs4::Usb4Version>}}),
      Row<RouterCs5>("ROUTER_CS_5", {{"EnterSleep", Get<RouterCs5::EnterSleep>},
                                     {"WakeOnPcie", Get<RouterCs5::WakeOnPcie>},
                                     {"WakeOnUsb3", Get<RouterCs5::WakeOnUsb3>},
                                     {"WakeOnDisplayPort", Get<RouterCs5::WakeOnDisplayPort>},
                                     {"ManagerSupportsTbt3", Get<RouterCs5::ManagerSupportsTbt3>},
                                     {"PcieTunnelling", Get<RouterCs5::PcieTunnelling>},
                                     {"Usb3Tunnelling", Get<RouterCs5::Usb3Tunnelling>},
                                     {"InternalHostController", Get<RouterCs5::InternalHostController>},
                                     {"ConfigurationValid", Get<RouterCs5::ConfigurationValid>}}),
      Row<RouterCs6>("ROUTER_CS_6", {{"SleepReady", Get<RouterCs6::SleepReady>},
                                     {"Tbt3NotSupported", Get<RouterCs6::Tbt3NotSupported>},
                                     {"WokenByPcie", Get<RouterCs6::WokenByPcie>},
                                     {"WokenByUsb3", Get<RouterCs6::WokenByUsb3>},
                                     {"InternalHostController", Get<RouterCs6::InternalHostController>},
                                     {"ConfigurationReady", Get<RouterCs6::ConfigurationReady>}}),
      Row<RouterCs26>("ROUTER_CS_26", {{"Opcode", Get<RouterCs26::Opcode>},
                                       {"Status", Get<RouterCs26::Status>},
                                       {"NotSupported", Get<RouterCs26::NotSupported>},
                                       {"OperationValid", Get<RouterCs26::OperationValid>}}),
  };
}

std::vector<RegisterRow> RouterTmuRows() {
  return {
      Row<RouterTmuCs0>("TMU_RTR_CS_0", {{"TimeDisruption", Get<RouterTmuCs0::TimeDisruption>},
                                         {"UnidirectionalCapable", Get<RouterTmuCs0::UnidirectionalCapable>}}),
      Row<RouterTmuCs1>("TMU_RTR_CS_1", {{"TimeLow", Get<RouterTmuCs1::TimeLow>}}),
      Row<RouterTmuCs2>("TMU_RTR_CS_2", {{"TimeMiddle", Get<RouterTmuCs2::TimeMiddle>}}),
      Row<RouterTmuCs3>("TMU_RTR_CS_3", {{"TimeHigh", Get<RouterTmuCs3::TimeHigh>}, {"Rate", Get<RouterTmuCs3::Rate>}}),
  };
}

std::vector<RegisterRow> PlugEventsRows() {
  return {
      Row<PlugEventsCs1>("plug events 1",
                         {{"LowMask", Get<PlugEventsCs1::LowMask>}, {"HighMask", Get<PlugEventsCs1::HighMask>}}),
      Row<EepromControl>("EEPROM control", {{"Clock", Get<EepromControl::Clock>},
                                            {"Deselect", Get<EepromControl::Deselect>},
                                            {"DataOut", Get<EepromControl::DataOut>},
                                            {"DataIn", Get<EepromControl::DataIn>},
                                            {"BitBangEnable", Get<EepromControl::BitBangEnable>},
                                            {"Absent", Get<EepromControl::Absent>},
                                            {"Present", Get<EepromControl::Present>}}),
  };
}

std::vector<RegisterRow> LinkControllerRows() {
  return {
      Row<LinkControllerDescriptor>("LC descriptor", {{"PortCount", Get<LinkControllerDescriptor::PortCount>},
                                                      {"FirstPort", Get<LinkControllerDescriptor::FirstPort>},
                                                      {"PortSize", Get<LinkControllerDescriptor::PortSize>}}),
      Row<LinkControllerSinks>(
          "LC sinks", {{"Sink0", Get<LinkControllerSinks::Sink0>}, {"Sink1", Get<LinkControllerSinks::Sink1>}}),
  };
}

std::vector<RegisterRow> AdapterSpaceRows() {
  return {
      Row<AdpCs1>("ADP_CS_1",
                  {{"FirstCapability", Get<AdpCs1::FirstCapability>}, {"CounterSets", Get<AdpCs1::CounterSets>}}),
      Row<AdpCs2>("ADP_CS_2", {{"Type", Get<AdpCs2::Type>}}),
      Row<AdpCs4>("ADP_CS_4", {{"NfcBuffers", Get<AdpCs4::NfcBuffers>},
                               {"TotalBuffers", Get<AdpCs4::TotalBuffers>},
                               {"Lock", Get<AdpCs4::Lock>}}),
      Row<AdpCs5>("ADP_CS_5", {{"MaximumInputHop", Get<AdpCs5::MaximumInputHop>},
                               {"MaximumOutputHop", Get<AdpCs5::MaximumOutputHop>},
                               {"LinkCredits", Get<AdpCs5::LinkCredits>},
                               {"DisableHotPlug", Get<AdpCs5::DisableHotPlug>}}),
  };
}

std::vector<RegisterRow> LaneRows() {
  return {
      Row<LaneAdpCs0>("LANE_ADP_CS_0", {{"SupportedWidths", Get<LaneAdpCs0::SupportedWidths>}}),
      Row<LaneAdpCs1>("LANE_ADP_CS_1", {{"TargetWidth", Get<LaneAdpCs1::TargetWidth>},
                                        {"LaneDisable", Get<LaneAdpCs1::LaneDisable>},
                                        {"LaneBonding", Get<LaneAdpCs1::LaneBonding>},
                                        {"CurrentSpeed", Get<LaneAdpCs1::CurrentSpeed>},
                                        {"NegotiatedWidth", Get<LaneAdpCs1::NegotiatedWidth>},
                                        {"State", Get<LaneAdpCs1::State>}}),
  };
}

std::vector<RegisterRow> AdapterTmuRows() {
  return {
      Row<AdapterTmuCs3>("TMU_ADP_CS_3", {{"Unidirectional", Get<AdapterTmuCs3::Unidirectional>}}),
  };
}

std::vector<RegisterRow> Usb4PortRows() {
  return {
      Row<PortCs18>("PORT_CS_18", {{"BondingEnabled", Get<PortCs18::BondingEnabled>},
                                   {"Tbt3Compatible", Get<PortCs18::Tbt3Compatible>},
                                   {"WakeStatus", Get<PortCs18::WakeStatus>}}),
      Row<PortCs19>("PORT_CS_19", {{"PortConfigured", Get<PortCs19::PortConfigured>},
                                   {"XdomainConfigured", Get<PortCs19::XdomainConfigured>},
                                   {"WakeOnConnect", Get<PortCs19::WakeOnConnect>},
                                   {"WakeOnDisconnect", Get<PortCs19::WakeOnDisconnect>},
                                   {"WakeOnUsb4", Get<PortCs19::WakeOnUsb4>}}),
  };
}

std::vector<RegisterRow> PcieAdapterRows() {
  return {
      Row<PcieAdpCs0>("ADP_PCIE_CS_0", {{"PathEnable", Get<PcieAdpCs0::PathEnable>}}),
  };
}

std::vector<RegisterRow> Usb3AdapterRows() {
  return {
      Row<Usb3AdpCs0>("ADP_USB3_CS_0",
                      {{"Valid", Get<Usb3AdpCs0::Valid>}, {"PathEnable", Get<Usb3AdpCs0::PathEnable>}}),
      Row<Usb3AdpCs1>("ADP_USB3_CS_1", {{"ConsumedUpstream", Get<Usb3AdpCs1::ConsumedUpstream>},
                                        {"ConsumedDownstream", Get<Usb3AdpCs1::ConsumedDownstream>},
                                        {"RequestAcknowledged", Get<Usb3AdpCs1::RequestAcknowledged>}}),
      Row<Usb3AdpCs2>("ADP_USB3_CS_2", {{"AllocatedUpstream", Get<Usb3AdpCs2::AllocatedUpstream>},
                                        {"AllocatedDownstream", Get<Usb3AdpCs2::AllocatedDownstream>},
                                        {"ManagerRequest", Get<Usb3AdpCs2::ManagerRequest>}}),
      Row<Usb3AdpCs3>("ADP_USB3_CS_3", {{"Scale", Get<Usb3AdpCs3::Scale>}}),
      Row<Usb3AdpCs4>("ADP_USB3_CS_4", {{"ActualRate", Get<Usb3AdpCs4::ActualRate>},
                                        {"ActualRateValid", Get<Usb3AdpCs4::ActualRateValid>},
                                        {"MaximumRate", Get<Usb3AdpCs4::MaximumRate>}}),
  };
}

std::vector<RegisterRow> DpAdapterRows() {
  return {
      Row<DpAdpCs0>("ADP_DP_CS_0", {{"VideoHop", Get<DpAdpCs0::VideoHop>},
                                    {"AuxEnable", Get<DpAdpCs0::AuxEnable>},
                                    {"VideoEnable", Get<DpAdpCs0::VideoEnable>}}),
      Row<DpAdpCs1>("ADP_DP_CS_1", {{"AuxTransmitHop", Get<DpAdpCs1::AuxTransmitHop>},
                                    {"AuxReceiveHop", Get<DpAdpCs1::AuxReceiveHop>}}),
      Row<DpAdpCs2>("ADP_DP_CS_2",
                    {{"HotPlugDetect", Get<DpAdpCs2::HotPlugDetect>}, {"Configuration", Get<DpAdpCs2::Configuration>}}),
      Row<DpAdpCs3>("ADP_DP_CS_3", {{"HotPlugDetectClear", Get<DpAdpCs3::HotPlugDetectClear>}}),
      Row<DpAdpCs4>("ADP_DP_CS_4", {{"RateCode", Get<DpAdpCs4::RateCode>},
                                    {"LaneCode", Get<DpAdpCs4::LaneCode>},
                                    {"LongTrainingSupport", Get<DpAdpCs4::LongTrainingSupport>},
                                    {"ReadDone", Get<DpAdpCs4::ReadDone>}}),
      Row<DpAdpCs5>("ADP_DP_CS_5", {{"RateCode", Get<DpAdpCs5::RateCode>},
                                    {"LaneCode", Get<DpAdpCs5::LaneCode>},
                                    {"LongTrainingSupport", Get<DpAdpCs5::LongTrainingSupport>},
                                    {"ReadDone", Get<DpAdpCs5::ReadDone>}}),
      Row<DpAdpCs6>("ADP_DP_CS_6", {{"ManagerHandshake", Get<DpAdpCs6::ManagerHandshake>},
                                    {"ManagerMode", Get<DpAdpCs6::ManagerMode>}}),
      Row<DpAdpCs7>("ADP_DP_CS_7", {{"RateCode", Get<DpAdpCs7::RateCode>},
                                    {"LaneCode", Get<DpAdpCs7::LaneCode>},
                                    {"LongTrainingSupport", Get<DpAdpCs7::LongTrainingSupport>},
                                    {"ReadDone", Get<DpAdpCs7::ReadDone>}}),
  };
}

}  // namespace

const std::vector<RegisterRow>& RegistersOf(RegisterBlockKind kind) {
  static const std::vector<RegisterRow> kRows[] = {
      RouterSpaceRows(), RouterTmuRows(), PlugEventsRows(),  LinkControllerRows(), AdapterSpaceRows(), LaneRows(),
      AdapterTmuRows(),  Usb4PortRows(),  PcieAdapterRows(), Usb3AdapterRows(),    DpAdapterRows(),
  };
  return kRows[static_cast<std::size_t>(kind)];
}

}  // namespace lab
