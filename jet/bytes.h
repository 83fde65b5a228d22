#pragma once
// Little-endian readers with bounds checks: a damaged file must never read past its buffer.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace jet::detail
{

inline std::uint16_t le16(const std::uint8_t* p)
{
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}
inline std::uint32_t le24(const std::uint8_t* p)
{
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16;
}
inline std::uint32_t le32(const std::uint8_t* p)
{
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24;
}
inline std::uint64_t le64(const std::uint8_t* p)
{
    return std::uint64_t(le32(p)) | std::uint64_t(le32(p + 4)) << 32;
}
inline double leDouble(const std::uint8_t* p)
{
    std::uint64_t v = le64(p);
    double d;
    std::memcpy(&d, &v, sizeof d);
    return d;
}
inline float leFloat(const std::uint8_t* p)
{
    std::uint32_t v = le32(p);
    float f;
    std::memcpy(&f, &v, sizeof f);
    return f;
}

// Sequential reader over a buffer; any read past the end sets bad and yields zeros.
struct Reader {
    const std::uint8_t* p;
    std::size_t n;
    std::size_t pos = 0;
    bool bad = false;

    bool have(std::size_t k)
    {
        if (bad || pos > n || n - pos < k) {
            bad = true;
            return false;
        }
        return true;
    }
    std::uint8_t u8() { return have(1) ? p[pos++] : 0; }
    std::uint16_t u16()
    {
        if (!have(2)) return 0;
        pos += 2;
        return le16(p + pos - 2);
    }
    std::uint32_t u32()
    {
        if (!have(4)) return 0;
        pos += 4;
        return le32(p + pos - 4);
    }
    const std::uint8_t* take(std::size_t k)
    {
        if (!have(k)) return nullptr;
        pos += k;
        return p + pos - k;
    }
    void skip(std::size_t k) { take(k); }
};

// Little-endian writers, for the pages and definitions the engine writes.
inline void put16(std::uint8_t* p, std::uint32_t v)
{
    p[0] = static_cast<std::uint8_t>(v);
    p[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void put32(std::uint8_t* p, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}
inline void put64(std::uint8_t* p, std::uint64_t v)
{
    put32(p, static_cast<std::uint32_t>(v));
    put32(p + 4, static_cast<std::uint32_t>(v >> 32));
}
inline void append16(std::string& s, std::uint32_t v)
{
    s += static_cast<char>(v & 0xFF);
    s += static_cast<char>(v >> 8 & 0xFF);
}
inline void append32(std::string& s, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        s += static_cast<char>(v >> (8 * i) & 0xFF);
}

} // namespace jet::detail
