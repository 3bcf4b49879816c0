// GUIDs. DEFINE_GUID declares; in a file that includes initguid.h first it defines.
#ifndef KIVUSB4_GUIDDEF_TYPES
#define KIVUSB4_GUIDDEF_TYPES
#include <string.h>

typedef struct _GUID {
  unsigned int Data1;
  unsigned short Data2;
  unsigned short Data3;
  unsigned char Data4[8];
} GUID;
typedef GUID* LPGUID;
typedef const GUID* LPCGUID;
#define REFGUID const GUID&

inline int IsEqualGUID(REFGUID first, REFGUID second) {
  return memcmp(&first, &second, sizeof(GUID)) == 0;
}
inline bool operator==(REFGUID first, REFGUID second) {
  return IsEqualGUID(first, second) != 0;
}
inline bool operator!=(REFGUID first, REFGUID second) {
  return !(first == second);
}

#endif

// May be included again once INITGUID is defined: from then on the macro defines.
#undef DEFINE_GUID
#ifdef INITGUID
// Several files may define the same GUID; the linker keeps one.
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
  extern "C" const GUID name;                                        \
  extern "C" const GUID __attribute__((weak)) name = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}
#else
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) extern "C" const GUID name
#endif
