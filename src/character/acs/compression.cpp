#include "character/acs/compression.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>

#include "character/acs/character.h"

namespace corvel::acs {

namespace {

// Distance tiers: the number of 1-bits after the match flag picks how many bits the distance
// takes and what is added to it.
struct Tier {
    int bits;
    std::size_t base;
    std::size_t minimumLength;
};
constexpr Tier tiers[4] = {{6, 1, 2}, {9, 65, 2}, {12, 577, 2}, {20, 4673, 3}};
constexpr std::uint32_t endMarker = 0xFFFFF; // a 20-bit distance value that ends the stream
constexpr std::size_t maxDistance = 4673 + endMarker - 1;
constexpr std::size_t nearLimit = 4672; // farthest distance below the 20-bit tier
constexpr int maxLengthBits = 11;
constexpr std::size_t maxLength = 4096; // 2 + (2^11 - 1) + (2^11 - 1); one more in the 20-bit tier
constexpr int trailerBytes = 3;

class BitSource {
public:
    explicit BitSource(std::span<const std::uint8_t> bytes)
        : next_(bytes.data()), end_(bytes.data() + bytes.size())
    {
    }

    std::uint32_t take(int n) // n <= 24
    {
        if (count_ < n) {
            while (count_ <= 56 && next_ != end_) {
                buffer_ |= std::uint64_t{*next_++} << count_;
                count_ += 8;
            }
            if (count_ < n) throw AcsError("compressed data ends early, before its end marker");
        }
        const auto value = static_cast<std::uint32_t>(buffer_ & ((std::uint64_t{1} << n) - 1));
        buffer_ >>= n;
        count_ -= n;
        return value;
    }
    bool bit() { return take(1) != 0; }

private:
    const std::uint8_t* next_;
    const std::uint8_t* end_;
    std::uint64_t buffer_ = 0;
    int count_ = 0;
};

class BitSink {
public:
    explicit BitSink(std::vector<std::uint8_t>& out) : out_(out) {}

    void put(std::uint32_t value, int n) // n <= 32
    {
        buffer_ |= std::uint64_t{value} << count_;
        count_ += n;
        while (count_ >= 8) {
            out_.push_back(static_cast<std::uint8_t>(buffer_));
            buffer_ >>= 8;
            count_ -= 8;
        }
    }
    void ones(int n) { put(static_cast<std::uint32_t>((std::uint64_t{1} << n) - 1), n); }
    void padWithOnes()
    {
        if (count_ > 0) ones(8 - count_);
    }

private:
    std::vector<std::uint8_t>& out_;
    std::uint64_t buffer_ = 0;
    int count_ = 0;
};

void putMatch(BitSink& sink, std::size_t distance, std::size_t length)
{
    sink.put(1, 1);
    int tier = 0;
    while (tier < 3 && distance >= tiers[tier + 1].base) ++tier;
    sink.ones(tier);
    if (tier < 3) sink.put(0, 1);
    sink.put(static_cast<std::uint32_t>(distance - tiers[tier].base), tiers[tier].bits);
    // length = minimum + (2^k - 1) + v, with v in k bits after k 1-bits and a 0.
    const std::size_t rest = length - tiers[tier].minimumLength;
    const int k = std::bit_width(rest + 1) - 1;
    sink.ones(k);
    sink.put(0, 1);
    if (k > 0) sink.put(static_cast<std::uint32_t>(rest - ((std::size_t{1} << k) - 1)), k);
}

} // namespace

std::vector<std::uint8_t> decompress(std::span<const std::uint8_t> stream, std::size_t size)
{
    if (stream.empty() || stream[0] != 0) throw AcsError("compressed data does not start with a 0 byte");
    BitSource bits(stream.subspan(1));
    const auto tooMuch = [&] {
        return AcsError("compressed data yields more than the expected " + std::to_string(size) + " bytes");
    };
    // Grown as the stream yields, so a short stream claiming a large size costs little.
    std::vector<std::uint8_t> out(std::min(size, stream.size() * 16 + 256));
    std::size_t pos = 0;
    const auto makeRoom = [&](std::size_t n) {
        if (n > size - pos) throw tooMuch();
        if (pos + n > out.size()) out.resize(std::min(size, std::max(out.size() * 2, pos + n)));
    };
    for (;;) {
        if (!bits.bit()) {
            makeRoom(1);
            out[pos++] = static_cast<std::uint8_t>(bits.take(8));
            continue;
        }
        int tier = 0;
        while (tier < 3 && bits.bit()) ++tier;
        const std::uint32_t value = bits.take(tiers[tier].bits);
        if (tier == 3 && value == endMarker) break;
        const std::size_t distance = value + tiers[tier].base;
        int k = 0;
        while (bits.bit())
            if (++k > maxLengthBits) throw AcsError("compressed data holds a match longer than allowed");
        const std::size_t length =
            tiers[tier].minimumLength + ((std::size_t{1} << k) - 1) + (k > 0 ? bits.take(k) : 0);
        if (distance > pos) throw AcsError("compressed data refers back before its start");
        makeRoom(length);
        std::uint8_t* to = out.data() + pos;
        const std::uint8_t* from = to - distance;
        if (distance >= length)
            std::memcpy(to, from, length);
        else if (distance == 1)
            std::memset(to, *from, length);
        else
            for (std::size_t i = 0; i < length; ++i) to[i] = from[i];
        pos += length;
    }
    if (pos != size)
        throw AcsError("compressed data yields " + std::to_string(pos) + " bytes, expected " + std::to_string(size));
    out.resize(pos);
    return out;
}

std::vector<std::uint8_t> compress(std::span<const std::uint8_t> data)
{
    std::vector<std::uint8_t> out{0};
    out.reserve(data.size() / 2 + 16);
    BitSink sink(out);

    const std::size_t n = data.size();
    constexpr int hashBits = 15;
    constexpr int maxChain = 48;
    std::vector<std::int32_t> head(std::size_t{1} << hashBits, -1), prev(n, -1);
    std::vector<std::int32_t> pairHead(std::size_t{1} << 16, -1); // for two-byte matches
    const auto hash3 = [&](std::size_t p) {
        const std::uint32_t v = data[p] | data[p + 1] << 8 | data[p + 2] << 16;
        return (v * 2654435761u) >> (32 - hashBits);
    };
    const auto pairKey = [&](std::size_t p) { return data[p] | data[p + 1] << 8; };
    const auto insert = [&](std::size_t p) {
        if (p + 3 <= n) {
            const auto h = hash3(p);
            prev[p] = head[h];
            head[h] = static_cast<std::int32_t>(p);
        }
        if (p + 2 <= n) pairHead[pairKey(p)] = static_cast<std::int32_t>(p);
    };

    std::size_t pos = 0;
    while (pos < n) {
        std::size_t bestLength = 0, bestDistance = 0;
        if (pos + 3 <= n) {
            const std::size_t limit = std::min(n - pos, maxLength + 1);
            std::int32_t candidate = head[hash3(pos)];
            for (int depth = 0; candidate >= 0 && depth < maxChain; ++depth) {
                const auto from = static_cast<std::size_t>(candidate);
                const std::size_t distance = pos - from;
                if (distance > maxDistance) break;
                const std::size_t cap = distance > nearLimit ? limit : std::min(limit, maxLength);
                if (bestLength < cap && data[from + bestLength] == data[pos + bestLength]) {
                    std::size_t length = 0;
                    while (length < cap && data[from + length] == data[pos + length]) ++length;
                    const std::size_t minimum = distance > nearLimit ? 3 : 2;
                    if (length >= minimum && length > bestLength) {
                        bestLength = length;
                        bestDistance = distance;
                        if (length == limit) break;
                    }
                }
                candidate = prev[from];
            }
        }
        if (bestLength < 2 && pos + 2 <= n) {
            const std::int32_t candidate = pairHead[pairKey(pos)];
            if (candidate >= 0 && pos - static_cast<std::size_t>(candidate) <= nearLimit) {
                bestLength = 2;
                bestDistance = pos - static_cast<std::size_t>(candidate);
            }
        }
        if (bestLength >= 2) {
            putMatch(sink, bestDistance, bestLength);
            for (std::size_t i = 0; i < bestLength; ++i) insert(pos + i);
            pos += bestLength;
        } else {
            sink.put(0, 1);
            sink.put(data[pos], 8);
            insert(pos);
            ++pos;
        }
    }
    sink.put(1, 1);
    sink.ones(3);
    sink.put(endMarker, 20);
    sink.padWithOnes();
    out.insert(out.end(), trailerBytes, 0xFF);
    return out;
}

} // namespace corvel::acs
