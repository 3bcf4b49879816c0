// CRC-32C (Castagnoli): reflected polynomial 0x82F63B78, initial value all ones, final complement. Any IRQL.
#pragma once
#include <cstddef>
#include <cstdint>

// Over `bytes` bytes in the order in which they stand in memory.
[[nodiscard]] std::uint32_t Crc32c(const void* data, std::size_t bytes);
