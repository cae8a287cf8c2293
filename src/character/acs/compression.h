#pragma once

// The LZ77 scheme character files compress images and regions with: a 0 byte, then a bit
// stream read least-significant bit first (literals, and back references in four distance
// tiers), closed by an end marker and a trailer of 0xFF bytes.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvel::acs {

// Decodes `stream` into exactly `size` bytes. Throws AcsError when the stream is damaged: it
// ends early, refers back before its start, or yields more or fewer than `size` bytes. Memory
// grows with what the stream really yields, never beyond `size`.
std::vector<std::uint8_t> decompress(std::span<const std::uint8_t> stream, std::size_t size);

// Encodes `data` (greedy matching on a hash chain) with the trailer every stream ends in.
std::vector<std::uint8_t> compress(std::span<const std::uint8_t> data);

} // namespace corvel::acs
