// Bounded formatting with the kernel's format language: a long is 32 bits wide, I64 and ll are 64; in a narrow format
// %s is narrow and %S wide, in a wide format the other way round; h and l (or w) say which outright.
#include <algorithm>
#include <string>
#include <type_traits>

#include "platform/include/ntstrsafe.h"
#include "platform/include/wdm.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

namespace {

struct Conversion {
  bool left = false, zero = false, sign = false, space = false, alternate = false;
  int width = 0;
  int precision = -1;
  bool wide64 = false;
  enum { Default, Narrow, Wide } size = Default;  // also: h and l of integers
  bool byteSized = false;
};

template <class Character>
class Formatter {
 public:
  Formatter(KernelCall& call, const Character* format, va_list arguments) : call_(call), at_(format) {
    va_copy(arguments_, arguments);
  }
  ~Formatter() { va_end(arguments_); }

  const std::u16string& Run() {
    while (*at_ != 0) {
      if (*at_ != '%') {
        out_ += Widened(*at_++);
      } else if (at_[1] == '%') {
        out_ += u'%';
        at_ += 2;
      } else {
        ++at_;
        Convert();
      }
    }
    return out_;
  }

 private:
  // Text is kept in 16 bits whatever the format's width is. (A string of wchar_t would link with a library that was
  // compiled for four bytes.)
  using Text = std::u16string;

  static char16_t Widened(Character character) {
    return static_cast<char16_t>(static_cast<std::make_unsigned_t<Character>>(character));
  }

  void Convert() {
    Conversion conversion;
    ReadFlags(conversion);
    conversion.width = ReadNumber();
    if (conversion.width < 0) {
      conversion.left = true;
      conversion.width = -conversion.width;
    }
    if (*at_ == '.') {
      ++at_;
      conversion.precision = ReadNumber();
    }
    ReadSize(conversion);
    const Character kind = *at_;
    if (kind != 0) ++at_;
    ConvertAs(conversion, kind);
  }

  void ReadFlags(Conversion& conversion) {
    for (;; ++at_) {
      switch (*at_) {
        case '-':
          conversion.left = true;
          break;
        case '0':
          conversion.zero = true;
          break;
        case '+':
          conversion.sign = true;
          break;
        case ' ':
          conversion.space = true;
          break;
        case '#':
          conversion.alternate = true;
          break;
        default:
          return;
      }
    }
  }

  int ReadNumber() {
    if (*at_ == '*') {
      ++at_;
      return va_arg(arguments_, int);
    }
    int number = 0;
    while (*at_ >= '0' && *at_ <= '9') number = std::min(number * 10 + (*at_++ - '0'), 1 << 20);
    return number;
  }

  void ReadSize(Conversion& conversion) {
    if (*at_ == 'h') {
      conversion.size = Conversion::Narrow;
      if (*++at_ == 'h') conversion.byteSized = true, ++at_;
    } else if (*at_ == 'l' && at_[1] == 'l') {
      conversion.wide64 = true;
      at_ += 2;
    } else if (*at_ == 'l' || *at_ == 'w') {
      conversion.size = Conversion::Wide;
      ++at_;
    } else if (*at_ == 'z') {
      conversion.wide64 = true;
      ++at_;
    } else if (*at_ == 'I') {
      ++at_;
      if (at_[0] == '3' && at_[1] == '2') {
        at_ += 2;
      } else {
        if (at_[0] == '6' && at_[1] == '4') at_ += 2;
        conversion.wide64 = true;
      }
    }
  }

  void ConvertAs(const Conversion& conversion, Character kind) {
    switch (kind) {
      case 'd':
      case 'i':
        return Signed(conversion);
      case 'u':
        return Unsigned(conversion, 10, false);
      case 'x':
      case 'X':
        return Unsigned(conversion, 16, kind == 'X');
      case 'o':
        return Unsigned(conversion, 8, false);
      case 'p':
        return Pointer();
      case 'c':
        return Pad(conversion, Text(1, static_cast<char16_t>(va_arg(arguments_, int))));
      case 's':
      case 'S':
        return String(conversion, kind == 'S');
      default:
        call_.Report(Rule::NotModelled, "a conversion of the format: " + std::string(1, static_cast<char>(kind)));
    }
  }

  void Signed(const Conversion& conversion) {
    long long value = conversion.wide64 ? va_arg(arguments_, long long) : va_arg(arguments_, int);
    if (conversion.byteSized) {
      value = static_cast<signed char>(value);
    } else if (conversion.size == Conversion::Narrow) {
      value = static_cast<short>(value);
    }
    const unsigned long long magnitude =
        value < 0 ? 0ull - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
    Text prefix;
    if (value < 0) {
      prefix = Text(1, u'-');
    } else if (conversion.sign || conversion.space) {
      prefix = Text(1, conversion.sign ? u'+' : u' ');
    }
    Number(conversion, prefix, Digits(magnitude, 10, false));
  }

  void Unsigned(const Conversion& conversion, unsigned base, bool upper) {
    unsigned long long value =
        conversion.wide64 ? va_arg(arguments_, unsigned long long) : va_arg(arguments_, unsigned int);
    if (conversion.byteSized) {
      value = static_cast<unsigned char>(value);
    } else if (conversion.size == Conversion::Narrow) {
      value = static_cast<unsigned short>(value);
    }
    Text prefix;
    if (conversion.alternate && base == 16 && value != 0) {
      prefix = upper ? u"0X" : u"0x";
    }
    Number(conversion, prefix, Digits(value, base, upper));
  }

  // Sixteen upper-case digits, as the kernel prints pointers.
  void Pointer() {
    Conversion conversion;
    conversion.precision = 16;
    const auto value = reinterpret_cast<unsigned long long>(va_arg(arguments_, void*));
    Number(conversion, {}, Digits(value, 16, true));
  }

  static Text Digits(unsigned long long value, unsigned base, bool upper) {
    Text digits;
    do {
      const char16_t digit = static_cast<char16_t>(value % base);
      const char16_t letterA = upper ? u'A' : u'a';
      digits += static_cast<char16_t>(digit < 10 ? u'0' + digit : letterA + digit - 10);
      value /= base;
    } while (value != 0);
    std::reverse(digits.begin(), digits.end());
    return digits;
  }

  void Number(const Conversion& conversion, const Text& prefix, Text digits) {
    const auto missing = [&](int wanted, std::size_t have) {
      return wanted > static_cast<int>(have) ? static_cast<std::size_t>(wanted) - have : 0;
    };
    if (conversion.precision == 0 && digits == u"0") digits.clear();
    digits.insert(0, missing(conversion.precision, digits.size()), u'0');
    if (conversion.zero && !conversion.left && conversion.precision < 0) {
      digits.insert(0, missing(conversion.width, prefix.size() + digits.size()), u'0');
    }
    Pad(conversion, prefix + digits);
  }

  void String(const Conversion& conversion, bool otherKind) {
    constexpr bool kFormatIsWide = sizeof(Character) == sizeof(WCHAR);
    bool wide = kFormatIsWide != otherKind;
    if (conversion.size != Conversion::Default) wide = conversion.size == Conversion::Wide;
    if (wide) {
      Pad(conversion, Copy(va_arg(arguments_, const WCHAR*), conversion.precision));
    } else {
      Pad(conversion, Copy(va_arg(arguments_, const char*), conversion.precision));
    }
  }

  template <class From>
  static Text Copy(const From* from, int most) {
    if (!from) return u"(null)";
    Text text;
    for (int i = 0; (most < 0 || i < most) && from[i] != 0; ++i) {
      text += static_cast<char16_t>(static_cast<std::make_unsigned_t<From>>(from[i]));
    }
    return text;
  }

  void Pad(const Conversion& conversion, const Text& text) {
    const std::size_t width = static_cast<std::size_t>(conversion.width);
    const Text padding(width > text.size() ? width - text.size() : 0, u' ');
    out_ += conversion.left ? text + padding : padding + text;
  }

  KernelCall& call_;
  const Character* at_;
  va_list arguments_;
  Text out_;
};

template <class Character>
NTSTATUS Print(KernelCall& call, Character* destination, size_t bytes, const Character* format, va_list arguments) {
  const size_t room = bytes / sizeof(Character);
  if (!destination || !format || room == 0 || room > NTSTRSAFE_MAX_CCH) return STATUS_INVALID_PARAMETER;
  Formatter<Character> formatter(call, format, arguments);
  const std::u16string& text = formatter.Run();
  const size_t copied = std::min(text.size(), room - 1);
  for (size_t i = 0; i < copied; ++i) {
    const bool fits = text[i] < 0x100 || sizeof(Character) == sizeof(WCHAR);
    destination[i] = fits ? static_cast<Character>(text[i]) : Character{'?'};
  }
  destination[copied] = 0;
  return copied < text.size() ? STATUS_BUFFER_OVERFLOW : STATUS_SUCCESS;
}

}  // namespace

// PASSIVE_LEVEL.
NTSTATUS RtlStringCbPrintfA(PSTR pszDest, size_t cbDest, PCSTR pszFormat, ...) {
  KernelCall call("RtlStringCbPrintfA", PASSIVE_LEVEL);
  va_list arguments;
  va_start(arguments, pszFormat);
  const NTSTATUS status = Print(call, pszDest, cbDest, pszFormat, arguments);
  va_end(arguments);
  return status;
}

// PASSIVE_LEVEL.
NTSTATUS RtlStringCbPrintfW(PWSTR pszDest, size_t cbDest, PCWSTR pszFormat, ...) {
  KernelCall call("RtlStringCbPrintfW", PASSIVE_LEVEL);
  va_list arguments;
  va_start(arguments, pszFormat);
  const NTSTATUS status = Print(call, pszDest, cbDest, pszFormat, arguments);
  va_end(arguments);
  return status;
}
