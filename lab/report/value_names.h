// Numbers of the driver and the platform with their names, for people.
#pragma once
#include <cstdint>
#include <string>

namespace lab {

// "0xC000009A (STATUS_INSUFFICIENT_RESOURCES)"; the number alone where the platform's headers here have no name for it.
std::string StatusText(std::uint32_t status);
// "-12 (no memory)"; the number alone for what is no error of the driver.
std::string ResultText(std::int64_t result);

}  // namespace lab
