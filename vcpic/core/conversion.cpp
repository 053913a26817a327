// conversion.cpp - the four conversion tables and the one routine that converts with them. The tables are made at
// compile time from code page 037 and the repertoire of each set, and checked there.
#include "core/core.hpp"

#include "core/code_page_037.hpp"

namespace {

struct conversion_table
{
    u8 byte[512]; // 0 to 255: ASCII to EBCDIC; 256 to 511: EBCDIC to ASCII; 0: outside the set
};

constexpr bool is_lower(unsigned c) { return c >= 'a' && c <= 'z'; }
constexpr bool is_upper(unsigned c) { return c >= 'A' && c <= 'Z'; }
constexpr bool is_digit(unsigned c) { return c >= '0' && c <= '9'; }

constexpr bool is_one_of(unsigned c, const char *characters)
{
    for (; *characters != 0; ++characters)
    {
        if (c == static_cast<unsigned char>(*characters))
        {
            return true;
        }
    }
    return false;
}

constexpr bool is_printable(unsigned c) { return c >= 0x20 && c <= 0x7E; }

// The repertoires, by ASCII (Latin-1) character.
constexpr bool in_ae(unsigned c) { return is_upper(c) || is_lower(c) || is_digit(c) || is_one_of(c, " #$.@"); }
constexpr bool in_a(unsigned c) { return is_upper(c) || is_lower(c) || is_digit(c) || is_one_of(c, " #$@"); }
constexpr bool in_ae640(unsigned c) { return is_printable(c) && !is_one_of(c, "![\\]^`{|}~"); }
constexpr bool in_ae640_ex(unsigned c)
{
    return (is_printable(c) && !is_one_of(c, "[]^")) || c == 0xA2 || c == 0xA6 || c == 0xAC;
}

consteval conversion_table make_table(bool (*in_set)(unsigned), bool fold_to_upper)
{
    conversion_table table = {};
    unsigned to_ebcdic[256] = {};
    for (unsigned e = 0; e < 256; ++e)
    {
        to_ebcdic[code_page_037[e]] = e;
    }
    for (unsigned e = 0; e < 256; ++e)
    {
        const unsigned c = code_page_037[e];
        if (in_set(c))
        {
            const unsigned folded = fold_to_upper && is_lower(c) ? c - 'a' + 'A' : c;
            table.byte[c] = static_cast<u8>(to_ebcdic[folded]);
            table.byte[256 + e] = static_cast<u8>(folded);
        }
    }
    return table;
}

consteval unsigned repertoire(const conversion_table &table)
{
    unsigned count = 0;
    for (unsigned c = 0; c < 256; ++c)
    {
        count += table.byte[c] != 0;
    }
    return count;
}

// Without folding, the two halves are each other's inverse.
consteval bool round_trips(const conversion_table &table)
{
    for (unsigned c = 0; c < 256; ++c)
    {
        if (table.byte[c] != 0 && table.byte[256 + table.byte[c]] != c)
        {
            return false;
        }
    }
    return true;
}

constexpr conversion_table ae = make_table(in_ae, false);
constexpr conversion_table a = make_table(in_a, true);
constexpr conversion_table ae640 = make_table(in_ae640, false);
constexpr conversion_table ae640_ex = make_table(in_ae640_ex, false);

static_assert(repertoire(ae) == 67 && round_trips(ae));
static_assert(repertoire(a) == 66);
static_assert(repertoire(ae640) == 85 && round_trips(ae640));
static_assert(repertoire(ae640_ex) == 95 && round_trips(ae640_ex)); // 92 printable ones and three of Latin-1
static_assert(a.byte['a'] == 0xC1 && a.byte['Z'] == 0xE9 && a.byte[256 + 0xA9] == 'Z' && a.byte['.'] == 0);
static_assert(ae.byte['.'] == EBCDIC_PERIOD && ae.byte[' '] == EBCDIC_BLANK);
static_assert(ae640_ex.byte[0xA2] == 0x4A && ae640_ex.byte[0xA6] == 0x6A && ae640_ex.byte[0xAC] == 0x5F);

} // namespace

#pragma GCC visibility push(default)
extern "C" {
extern const conversion_table table_ae asm("cpic_ae");
extern const conversion_table table_a asm("cpic_a");
extern const conversion_table table_ae640 asm("cpic_ae640");
extern const conversion_table table_ae640_ex asm("cpic_ae640_ex");
const conversion_table table_ae = ae;
const conversion_table table_a = a;
const conversion_table table_ae640 = ae640;
const conversion_table table_ae640_ex = ae640_ex;
}
#pragma GCC visibility pop

void SCC_convert_string(u16 direction, u16 set, short length, u8 *destination, const u8 *source)
{
    static constexpr const conversion_table *sets[] = {&ae, &a, &ae640, &ae640_ex};

    CPIC_CHECK(direction <= EBCDIC_TO_ASCII, "FALSE");
    if (set > SET_AE640_EX)
    {
        CPIC_CHECK(false, "FALSE");
        return; // there is no table to convert with
    }
    const u8 *map = sets[set]->byte + (direction == EBCDIC_TO_ASCII ? 256 : 0);
    for (int i = 0; i < length; ++i)
    {
        destination[i] = map[source[i]];
    }
}
