// Goal: pool, strings, formatting, registry and tracing do what the driver relies on. Method: one task of one host;
// literal inputs and outputs.
#include <gtest/gtest.h>
#include <ntddk.h>
#include <ntstrsafe.h>

#include <cstring>
#include <set>

#include "platform/kernel/registry.h"
#include "tests/platform/kernel_verbs.h"
#include "tests/platform/rule_tests.h"

namespace platform {
namespace {

class Calls : public HostTest {};

// --- pool ---

TEST_F(Calls, PoolIsZeroedAlignedAndCountedByTag) {
  OnTask([&] {
    std::map<std::size_t, unsigned char*> blocks;
    for (std::size_t bytes : {1u, 15u, 16u, 17u, 64u, 260u, 4096u, 100'000u, 5'000'000u}) {
      auto* block = static_cast<unsigned char*>(ExAllocatePool2(POOL_FLAG_NON_PAGED, bytes, kTag));
      ASSERT_NE(block, nullptr);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0u);
      for (std::size_t i = 0; i < bytes; ++i) ASSERT_EQ(block[i], 0) << "byte " << i << " of " << bytes;
      std::memset(block, 0xee, bytes);
      blocks[bytes] = block;
    }
    void* other = ExAllocatePool2(POOL_FLAG_NON_PAGED | POOL_FLAG_UNINITIALIZED, 8, kOtherTag);
    EXPECT_EQ(rig_.kernel.PoolByTag(), (std::map<std::string, std::size_t>{{"Test", 5'104'469}, {"Oher", 8}}));
    EXPECT_EQ(rig_.kernel.PoolBytes(), 5'104'477u);
    for (auto& [bytes, block] : blocks) {
      EXPECT_EQ(block[bytes - 1], 0xee);
      ExFreePoolWithTag(block, kTag);
    }
    ExFreePoolWithTag(other, kOtherTag);
    EXPECT_EQ(rig_.kernel.PoolBytes(), 0u);
  });
}

TEST_F(Calls, MemoryThatIsUsedAgainIsZeroedAgain) {
  OnTask([&] {
    std::set<void*> seen;
    bool again = false;
    for (int i = 0; i < 500; ++i) {
      auto* block = static_cast<unsigned char*>(ExAllocatePool2(POOL_FLAG_NON_PAGED, 200, kTag));
      for (int byte = 0; byte < 200; ++byte) ASSERT_EQ(block[byte], 0);
      std::memset(block, 0x55, 200);
      again |= !seen.insert(block).second;
      ExFreePoolWithTag(block, kTag);
    }
    EXPECT_TRUE(again) << "freed blocks rest, but not for ever";
    EXPECT_GE(seen.size(), 64u) << "a freed block rests while 64 others are freed";
  });
}

TEST_F(Calls, ALeakReportNamesTagCountAndAllocation) {
  rig_.OnTask([] {
    (void)ExAllocatePool2(POOL_FLAG_NON_PAGED, 24, kTag);
    (void)ExAllocatePool2(POOL_FLAG_NON_PAGED, 40, kTag);
    (void)ExAllocatePool2(POOL_FLAG_NON_PAGED, 8, kOtherTag);
  });
  rig_.kernel.UnloadDriver();
  ASSERT_EQ(rig_.simulation.violations().size(), 1u);
  const std::string& detail = rig_.simulation.violations()[0].detail;
  EXPECT_NE(detail.find("2 x 'Test', first: block of tag 'Test', 24 bytes, allocation "), std::string::npos) << detail;
  EXPECT_NE(detail.find("1 x 'Oher', first: block of tag 'Oher', 8 bytes, allocation "), std::string::npos) << detail;
}

// --- strings ---

TEST_F(Calls, StringsConvertBothWaysIntoNewOrGivenBuffers) {
  OnTask([&] {
    ANSI_STRING narrow;
    RtlInitAnsiString(&narrow, "caf\xe9");
    UNICODE_STRING wide;
    ASSERT_EQ(RtlAnsiStringToUnicodeString(&wide, &narrow, TRUE), STATUS_SUCCESS);
    EXPECT_EQ(wide.Length, 8);
    EXPECT_EQ(std::memcmp(wide.Buffer, L"caf\u00e9", 10), 0);
    wide.Buffer[0] = 0x20ac;
    CHAR room[5];
    ANSI_STRING back{0, sizeof room, room};
    ASSERT_EQ(RtlUnicodeStringToAnsiString(&back, &wide, FALSE), STATUS_SUCCESS);
    EXPECT_STREQ(room, "?af\xe9") << "a character that the code page lacks";
    back.MaximumLength = 4;
    EXPECT_EQ(RtlUnicodeStringToAnsiString(&back, &wide, FALSE), STATUS_BUFFER_OVERFLOW);
    RtlFreeUnicodeString(&wide);
    EXPECT_EQ(wide.Buffer, nullptr);
    EXPECT_EQ(rig_.kernel.PoolBytes(), 0u);
    rig_.simulation.faults().FailNth("pool.allocate", 1);
    EXPECT_EQ(RtlAnsiStringToUnicodeString(&wide, &narrow, TRUE), STATUS_NO_MEMORY);
  });
}

template <class... Arguments>
std::string Narrow(const char* format, Arguments... arguments) {
  char text[64];
  EXPECT_EQ(RtlStringCbPrintfA(text, sizeof text, format, arguments...), STATUS_SUCCESS);
  return text;
}

TEST_F(Calls, FormatsFollowTheKernelsLanguage) {
  OnTask([&] {
    const struct {
      std::string is, shall;
    } cases[] = {
        {Narrow("%u-%llx", 0u, 0x301ull), "0-301"},
        {Narrow("%d %i %ld %+d % d", -5, 7, -2147483647 - 1, 3, 4), "-5 7 -2147483648 +3  4"},
        {Narrow("%08X|%#x|%#X|%x", 0xbeefu, 0xbeefu, 0xau, 0u), "0000BEEF|0xbeef|0XA|0"},
        {Narrow("%5d|%-5d|%05d|%.3d|%5.3d", 42, 42, -42, 7, 7), "   42|42   |-0042|007|  007"},
        {Narrow("%I64u %I64x %Iu %zu %I32u", 1ull << 40, ~0ull, 9ull, 8ull, 7u),
         "1099511627776 ffffffffffffffff 9 8 7"},
        {Narrow("%hu %hhx %hd", 0x12345u, 0x1ffu, 0xffff), "9029 ff -1"},
        {Narrow("%s|%10s|%-4s|%.2s", "abc", "abc", "ab", "abc"), "abc|       abc|ab  |ab"},
        {Narrow("%S|%ws|%ls|%hs", L"wide", L"w", L"l", "narrow"), "wide|w|l|narrow"},
        {Narrow("%c%c%%", 'o', 'k'), "ok%"},
        {Narrow("%*d|%-*d|%.*s", 4, 1, 3, 2, 2, "xyz"), "   1|2  |xy"},
        {Narrow("%p", reinterpret_cast<void*>(0xab)), "00000000000000AB"},
        {Narrow("%s", static_cast<const char*>(nullptr)), "(null)"},
        {Narrow("%S", L"\u20ac"), "?"},
    };
    for (const auto& test : cases) EXPECT_EQ(test.is, test.shall);
    WCHAR wide[16];
    EXPECT_EQ(RtlStringCbPrintfW(wide, sizeof wide, L"%s-%S-%hs-%u", L"a", "b", "c", 1u), STATUS_SUCCESS);
    EXPECT_EQ(std::memcmp(wide, L"a-b-c-1", 16), 0);
  });
}

TEST_F(Calls, TextThatDoesNotFitIsCutAndSaid) {
  OnTask([&] {
    char text[4] = "zzz";
    EXPECT_EQ(RtlStringCbPrintfA(text, sizeof text, "%s", "abc"), STATUS_SUCCESS);
    EXPECT_EQ(RtlStringCbPrintfA(text, sizeof text, "%s", "abcd"), STATUS_BUFFER_OVERFLOW);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(RtlStringCbPrintfA(text, 0, "x"), STATUS_INVALID_PARAMETER);
    WCHAR wide[2];
    EXPECT_EQ(RtlStringCbPrintfW(wide, 3, L"xy"), STATUS_BUFFER_OVERFLOW) << "half a character is no room";
    EXPECT_EQ(wide[0], 0);
  });
}

TEST_F(Calls, CompareCountsEqualBytesAndRandomRepeatsFromItsSeed) {
  OnTask([&] {
    EXPECT_EQ(RtlCompareMemory("abcd", "abxd", 4), 2u);
    EXPECT_EQ(RtlCompareMemory("abcd", "abcd", 4), 4u);
    ULONG one = 1, again = 1, two = 2;
    const ULONG first = RtlRandom(&one);
    EXPECT_LE(first, 0x7ffffffeu);
    EXPECT_EQ(first, RtlRandom(&again));
    EXPECT_EQ(one, again);
    EXPECT_NE(one, 1u) << "the seed moves on";
    EXPECT_NE(first, RtlRandom(&two));
  });
}

// --- registry ---

HANDLE OpenKey(HANDLE root, PCWSTR path, NTSTATUS expected) {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, path);
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, root, nullptr);
  HANDLE key = nullptr;
  EXPECT_EQ(ZwOpenKey(&key, KEY_READ, &attributes), expected);
  return key;
}

TEST_F(Calls, AValueIsReadWithFullInformationInTwoSteps) {
  rig_.kernel.registry().Create("\\Registry\\Machine\\SYSTEM\\ComputerName\\Active").SetText("ComputerName", "HOST1");
  OnTask([&] {
    HANDLE outer = OpenKey(nullptr, L"\\registry\\MACHINE\\System\\ComputerName", STATUS_SUCCESS);
    HANDLE inner = OpenKey(outer, L"Active", STATUS_SUCCESS);
    OpenKey(outer, L"Passive", STATUS_OBJECT_NAME_NOT_FOUND);
    OpenKey(nullptr, L"Active", STATUS_OBJECT_NAME_INVALID);
    UNICODE_STRING name;
    RtlInitUnicodeString(&name, L"computername");
    alignas(8) UCHAR buffer[96];
    std::memset(buffer, 0xaa, sizeof buffer);
    ULONG size = 0;
    EXPECT_EQ(ZwQueryValueKey(inner, &name, KeyValueFullInformation, buffer, 8, &size), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 60u) << "20 bytes, the name's 24, room to align, and 12 of data";
    EXPECT_EQ(buffer[0], 0xaa);
    EXPECT_EQ(ZwQueryValueKey(inner, &name, KeyValueFullInformation, buffer, 59, &size), STATUS_BUFFER_OVERFLOW);
    ASSERT_EQ(ZwQueryValueKey(inner, &name, KeyValueFullInformation, buffer, 60, &size), STATUS_SUCCESS);
    const auto* value = reinterpret_cast<const KEY_VALUE_FULL_INFORMATION*>(buffer);
    EXPECT_EQ(value->Type, ULONG{REG_SZ});
    EXPECT_EQ(value->DataLength, 12u);
    EXPECT_EQ(value->NameLength, 24u);
    EXPECT_EQ(std::memcmp(buffer + value->DataOffset, L"HOST1", 12), 0);
    EXPECT_EQ(buffer[60], 0xaa);
    RtlInitUnicodeString(&name, L"Other");
    EXPECT_EQ(ZwQueryValueKey(inner, &name, KeyValueFullInformation, buffer, 60, &size), STATUS_OBJECT_NAME_NOT_FOUND);
    EXPECT_EQ(ZwClose(inner), STATUS_SUCCESS);
    EXPECT_EQ(ZwClose(outer), STATUS_SUCCESS);
  });
  rig_.kernel.UnloadDriver();
  EXPECT_TRUE(rig_.simulation.violations().empty());
}

// --- tracing ---

class Recorder : public TraceSink {
 public:
  void OnTrace(const TraceRecord& record) override {
    if (record.kind != TraceKind::Driver) return;
    text += std::to_string(record.level) + ":" + std::string(record.task) + ":" +
            std::string(reinterpret_cast<const char*>(record.payload.data()), record.payload.size()) + " ";
  }
  std::string text;
};

TEST_F(Calls, TracingIsOffWithoutSinksAndGivesThemOneRecordPerEvent) {
  Recorder recorder;
  REGHANDLE handle = 0;
  const EVENT_DESCRIPTOR event{.Level = 3};
  EXPECT_FALSE(EtwEventEnabled(0, &event)) << "nobody is registered, and no task runs";
  const auto write = [&] {
    EVENT_DATA_DESCRIPTOR pieces[2] = {};
    pieces[0].Ptr = reinterpret_cast<ULONG_PTR>("ab");
    pieces[0].Size = 2;
    pieces[1].Ptr = reinterpret_cast<ULONG_PTR>("cde");
    pieces[1].Size = 3;
    EXPECT_EQ(EtwWrite(handle, &event, nullptr, 2, pieces), STATUS_SUCCESS);
  };
  OnTask([&] {
    const GUID provider{1, 2, 3, {}};
    ASSERT_EQ(EtwRegister(&provider, nullptr, nullptr, &handle), STATUS_SUCCESS);
    EXPECT_FALSE(EtwEventEnabled(handle, &event));
    write();
  });
  const std::uint64_t hash = rig_.simulation.TraceHash();
  rig_.simulation.AddSink(&recorder);
  OnTask([&] {
    EXPECT_TRUE(EtwEventEnabled(handle, &event));
    write();
  });
  EXPECT_EQ(rig_.simulation.TraceHash(), hash) << "observation is no part of a run";
  rig_.simulation.RemoveSink(&recorder);
  OnTask([&] {
    write();
    EXPECT_EQ(EtwUnregister(handle), STATUS_SUCCESS);
  });
  EXPECT_EQ(recorder.text, "3:breaker:abcde ");
}

}  // namespace
}  // namespace platform
