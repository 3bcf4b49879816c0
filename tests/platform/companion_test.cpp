// Goal: a driver finds, opens and asks a companion driver as the framework documents it. Method: companions that come
// and go.
#include "tests/platform/wdf_fixture.h"

namespace wdf_test {
namespace {

constexpr GUID kClass = {0x8CB2D6D3, 0x0001, 0x0002, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr char kClassText[] = "{8cb2d6d3-0001-0002-0102-030405060708}";

std::string LinksOf(const GUID& guid) {
  PWSTR list = nullptr;
  EXPECT_EQ(IoGetDeviceInterfaces(&guid, nullptr, 0, &list), 0);
  std::string text;
  for (PWSTR link = list; *link != 0;) {
    for (; *link != 0; ++link) text += static_cast<char>(*link);
    text += '\n';
    ++link;
  }
  ExFreePool(list);
  return text;
}

NTSTATUS Open(WDFIOTARGET target, PCWSTR link) {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, link);
  WDF_IO_TARGET_OPEN_PARAMS params;
  WDF_IO_TARGET_OPEN_PARAMS_INIT_OPEN_BY_NAME(&params, &name, STANDARD_RIGHTS_ALL);
  return WdfIoTargetOpen(target, &params);
}

NTSTATUS Send(WDFIOTARGET target, ULONG code) {
  UCHAR bytes[3] = {7, 8, 9};
  WDF_MEMORY_DESCRIPTOR input;
  WDF_MEMORY_DESCRIPTOR_INIT_BUFFER(&input, bytes, sizeof bytes);
  WDF_REQUEST_SEND_OPTIONS options;
  WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_TIMEOUT);
  options.Timeout = WDF_REL_TIMEOUT_IN_MS(2000);
  return WdfIoTargetSendIoctlSynchronously(target, nullptr, code, &input, nullptr, &options, nullptr);
}

WDFIOTARGET NewTarget(WDFDEVICE device) {
  WDFIOTARGET target = nullptr;
  EXPECT_EQ(WdfIoTargetCreate(device, WDF_NO_OBJECT_ATTRIBUTES, &target), 0);
  return target;
}

class CompanionDriver : public WdfTest {
 protected:
  void Offer(const char* link, NTSTATUS openStatus = 0) {
    host.Offer({kClassText, link, openStatus, [this](std::uint32_t, std::span<const std::uint8_t>) {
                  heard = true;
                  return platform::CompanionReply{};
                }});
  }
  bool heard = false;
};
INSTANTIATE_WDF(CompanionDriver);

TEST_P(CompanionDriver, LinksOfAClassComeInOrderAndOnlyWhileOffered) {
  Start();
  Offer("\\??\\second");
  Offer("\\??\\first");
  host.Offer({"{00000000-0000-0000-0000-000000000000}", "\\??\\other", 0, {}});
  InDriver([this](WDFDEVICE) {
    EXPECT_EQ(LinksOf(kClass), "\\??\\second\n\\??\\first\n");
    host.Withdraw("\\??\\second");
    EXPECT_EQ(LinksOf(kClass), "\\??\\first\n");
    host.Withdraw("\\??\\first");
    EXPECT_EQ(LinksOf(kClass), "");
  });
}

TEST_P(CompanionDriver, WhoCannotBeOpenedOrIsGoneIsNotReached) {
  Start();
  Offer("\\??\\busy", static_cast<NTSTATUS>(0xC0000022u));
  Offer("\\??\\display");
  InDriver([this](WDFDEVICE device) {
    WDFIOTARGET target = NewTarget(device);
    EXPECT_EQ(Open(target, L"\\??\\nobody"), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(Open(target, L"\\??\\busy"), static_cast<NTSTATUS>(0xC0000022u));
    EXPECT_EQ(Open(target, L"\\??\\display"), 0);
    host.Withdraw("\\??\\display");
    EXPECT_EQ(Send(target, 0x23202C), STATUS_DEVICE_NOT_CONNECTED);
    WdfObjectDelete(target);
  });
  EXPECT_FALSE(heard);
}

DEVICE_BREAKS(TargetThatIsNotOpen, InvalidArgument, "WdfIoTargetSendIoctlSynchronously") {
  (void)Send(NewTarget(device), 0x23202C);
}

}  // namespace
}  // namespace wdf_test
