// SPDX-License-Identifier: MIT
#include "capture/ascii_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

namespace vorncapture {
namespace {

/// In alphabetical order from U+03B1 (small) and U+0391 (capital) on; the final sigma has a place of its own.
constexpr std::array<const char*, 25> GREEK = {
    "alpha", "beta",    "gamma", "delta", "epsilon", "zeta",  "eta", "theta",   "iota", "kappa", "lambda", "mu",   "nu",
    "xi",    "omicron", "pi",    "rho",   "sigma",   "sigma", "tau", "upsilon", "phi",  "chi",   "psi",    "omega"};
constexpr uint32_t FIRST_SMALL_GREEK = 0x3B1;
constexpr uint32_t FIRST_CAPITAL_GREEK = 0x391;

/// U+00C0 to U+00FF.
constexpr std::array<const char*, 64> LATIN = {
    "A", "A", "A", "A", "Ae", "A", "AE", "C", "E", "E", "E", "E", "I",  "I", "I",  "I",   //
    "D", "N", "O", "O", "O",  "O", "Oe", "x", "O", "U", "U", "U", "Ue", "Y", "Th", "ss",  //
    "a", "a", "a", "a", "ae", "a", "ae", "c", "e", "e", "e", "e", "i",  "i", "i",  "i",   //
    "d", "n", "o", "o", "o",  "o", "oe", "/", "o", "u", "u", "u", "ue", "y", "th", "y"};
constexpr uint32_t FIRST_LATIN = 0xC0;

struct Sign {
    uint32_t code;
    const char* plain;
};
constexpr Sign SIGNS[] = {
    {0xA0, " "},    {0xB0, "deg"},  {0xB1, "+-"},   {0xB2, "2"},     {0xB3, "3"},   {0xB5, "u"},    {0xB7, "."},
    {0x2010, "-"},  {0x2011, "-"},  {0x2012, "-"},  {0x2013, "-"},   {0x2014, "-"}, {0x2018, "'"},  {0x2019, "'"},
    {0x201C, "\""}, {0x201D, "\""}, {0x201E, "\""}, {0x2026, "..."}, {0x2032, "'"}, {0x2033, "\""}, {0x2212, "-"}};

std::string plainOf(uint32_t code)
{
    if (code >= ' ' && code <= '~')
        return {static_cast<char>(code)};
    if (code >= FIRST_LATIN && code < FIRST_LATIN + LATIN.size())
        return LATIN[code - FIRST_LATIN];
    for (const uint32_t first : {FIRST_SMALL_GREEK, FIRST_CAPITAL_GREEK}) {
        if (code < first || code >= first + GREEK.size())
            continue;
        std::string name = GREEK[code - first];
        if (first == FIRST_CAPITAL_GREEK)
            name[0] = static_cast<char>(name[0] - 'a' + 'A');
        return name;
    }
    const auto* sign =
        std::find_if(std::begin(SIGNS), std::end(SIGNS), [code](const Sign& s) { return s.code == code; });
    return sign != std::end(SIGNS) ? sign->plain : "?";
}

/// Takes one character off the front of @p text. @return its code, or 0 for a byte that begins none
uint32_t takeCharacter(std::string_view& text)
{
    const auto byte = [&text](size_t at) { return static_cast<uint8_t>(text[at]); };
    const uint8_t first = byte(0);
    const size_t length = first < 0x80 ? 1 : first >> 5 == 6 ? 2 : first >> 4 == 14 ? 3 : first >> 3 == 30 ? 4 : 0;
    uint32_t code = length == 1 ? first : first & (0x7FU >> length);
    bool whole = length != 0 && length <= text.size();
    for (size_t i = 1; whole && i < length; ++i) {
        whole = byte(i) >> 6 == 2;
        code = code << 6 | (byte(i) & 0x3FU);
    }
    text.remove_prefix(whole ? length : 1);
    return whole ? code : 0;
}

}  // namespace

std::string toAscii(std::string_view text)
{
    std::string plain;
    while (!text.empty())
        plain += plainOf(takeCharacter(text));
    return plain;
}

}  // namespace vorncapture
