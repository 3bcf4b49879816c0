// Texts that cross between the platform's wide characters and the layer's own strings.
#pragma once
#include <cstdio>
#include <string>

#include "platform/include/ntdef.h"

namespace platform {

// Names of keys, values and devices are ASCII in this layer; any other character matches nothing.
inline std::string Narrow(const UNICODE_STRING& text) {
  std::string narrow;
  for (USHORT i = 0; i < text.Length / sizeof(WCHAR); ++i) {
    narrow += text.Buffer[i] < 0x80 ? static_cast<char>(text.Buffer[i]) : '?';
  }
  return narrow;
}

// "{52d5f7e0-0786-41ef-a5d8-f03a2b29ba26}"
inline std::string GuidText(const GUID& guid) {
  char text[40];
  const UCHAR* rest = guid.Data4;
  std::snprintf(text, sizeof(text), "{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}", guid.Data1, guid.Data2,
                guid.Data3, rest[0], rest[1], rest[2], rest[3], rest[4], rest[5], rest[6], rest[7]);
  return text;
}

}  // namespace platform
