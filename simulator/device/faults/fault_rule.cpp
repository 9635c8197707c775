// SPDX-License-Identifier: MIT
#include "fault_rule.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace vornsim {

const char* const FAULT_HELP =
    R"(A fault is a list of name=value, separated by commas. It says when:
  camera=N          which camera (1)
  open=N|every      count transfers from where the camera is opened for the N-th time
  exposure=N|every  count them from the beginning of the N-th exposure; without either: from the start
  endpoint=E        count only those on one endpoint, such as 0x86, or on control, in or out
  transfer=N        the first transfer affected (1)
  times=N|ever      how many in a row (1)
and one of these, what:
  error=NO_DEVICE   the camera is unplugged; with replug=SECONDS it comes back so much later, as after power-up, into
                    the same port, or with port=next into another one
  error=PIPE        stalled               error=NO_MEM  no memory in the host's system
  error=OVERFLOW    too much sent         error=BUSY    taken by another program, when it is opened
  error=IO          no handshake          short=BYTES   so many bytes are missing at the end
  error=TIMEOUT     no answer             garbage       all bytes are random
                                          delay=SECONDS the answer is late
Examples:
  --fault exposure=2,transfer=17,error=NO_DEVICE,replug=5
  --fault camera=2,endpoint=0x88,error=TIMEOUT,times=ever
  --fault exposure=every,endpoint=in,short=2)";

namespace {

constexpr double LONGEST_SECONDS = 86400;

/// The whole of @p text as a number. @return false when it is none, or not in the range.
template <typename T>
bool parseNumber(std::string_view text, T least, T most, T& value)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && value >= least && value <= most;
}

bool parseCount(std::string_view text, uint64_t& value)
{
    return parseNumber<uint64_t>(text, 1, UINT32_MAX, value);
}

/// A count, or a word that stands for a special one.
bool parseCountOr(std::string_view word, uint64_t meaning, std::string_view text, uint64_t& value)
{
    if (text != word)
        return parseCount(text, value);
    value = meaning;
    return true;
}

bool parseSeconds(std::string_view text, double& value)
{
    return parseNumber(text, 0.0, LONGEST_SECONDS, value);
}

bool parseEndpoints(std::string_view text, FaultRule::Endpoints& endpoints)
{
    if (text == "control")
        endpoints = {0x7F, 0x00};
    else if (text == "in" || text == "out")
        endpoints = {0x80, static_cast<uint8_t>(text == "in" ? 0x80 : 0x00)};
    else {
        endpoints.mask = 0xFF;
        const auto [end, error] = std::from_chars(text.data() + std::min<size_t>(2, text.size()),
                                                  text.data() + text.size(), endpoints.value, 16);
        return text.starts_with("0x") && error == std::errc() && end == text.data() + text.size();
    }
    return true;
}

bool parseError(std::string_view text, FaultKind& kind)
{
    struct Name {
        std::string_view name;
        FaultKind kind;
    };
    static constexpr std::array<Name, 7> NAMES = {{{"NO_DEVICE", FaultKind::UNPLUG},
                                                   {"PIPE", FaultKind::STALL},
                                                   {"OVERFLOW", FaultKind::BABBLE},
                                                   {"IO", FaultKind::IO_ERROR},
                                                   {"TIMEOUT", FaultKind::SILENCE},
                                                   {"NO_MEM", FaultKind::NO_MEMORY},
                                                   {"BUSY", FaultKind::BUSY}}};
    const auto* found = std::find_if(NAMES.begin(), NAMES.end(), [&](const Name& row) { return row.name == text; });
    if (found == NAMES.end())
        return false;
    kind = found->kind;
    return true;
}

/// What a name may stand for. A rule has one name at most of each.
enum Slot { CAMERA, SINCE, ENDPOINT, TRANSFER, TIMES, KIND, REPLUG, PORT, SLOT_COUNT };

struct Field {
    std::string_view name;
    Slot slot;
    const char* allowed;  ///< what its value may be
    bool (*parse)(std::string_view value, FaultRule& rule);
};

bool parseOccasion(FaultRule::Since since, std::string_view text, FaultRule& rule)
{
    rule.since = since;
    return parseCountOr("every", FaultRule::EVERY, text, rule.occasion);
}

constexpr std::array<Field, 12> FIELDS = {{
    {"camera", CAMERA, "a number from 1",
     [](std::string_view text, FaultRule& rule) { return parseCount(text, rule.camera); }},
    {"open", SINCE, "a number from 1, or every",
     [](std::string_view text, FaultRule& rule) { return parseOccasion(FaultRule::Since::OPENING, text, rule); }},
    {"exposure", SINCE, "a number from 1, or every",
     [](std::string_view text, FaultRule& rule) { return parseOccasion(FaultRule::Since::EXPOSURE, text, rule); }},
    {"endpoint", ENDPOINT, "a number such as 0x86, control, in or out",
     [](std::string_view text, FaultRule& rule) { return parseEndpoints(text, rule.endpoints); }},
    {"transfer", TRANSFER, "a number from 1",
     [](std::string_view text, FaultRule& rule) { return parseCount(text, rule.transfer); }},
    {"times", TIMES, "a number from 1, or ever",
     [](std::string_view text, FaultRule& rule) {
         return parseCountOr("ever", FaultRule::FOR_EVER, text, rule.times);
     }},
    {"error", KIND, "NO_DEVICE, PIPE, OVERFLOW, IO, TIMEOUT, NO_MEM or BUSY",
     [](std::string_view text, FaultRule& rule) { return parseError(text, rule.kind); }},
    {"short", KIND, "a number of bytes from 1",
     [](std::string_view text, FaultRule& rule) {
         rule.kind = FaultKind::SHORT;
         return parseCount(text, rule.missing);
     }},
    {"garbage", KIND, "nothing",
     [](std::string_view text, FaultRule& rule) {
         rule.kind = FaultKind::GARBAGE;
         return text.empty();
     }},
    {"delay", KIND, "seconds up to a day",
     [](std::string_view text, FaultRule& rule) {
         rule.kind = FaultKind::LATE_ANSWER;
         return parseSeconds(text, rule.seconds);
     }},
    {"replug", REPLUG, "seconds up to a day",
     [](std::string_view text, FaultRule& rule) { return parseSeconds(text, rule.replugSeconds.emplace()); }},
    {"port", PORT, "same or next",
     [](std::string_view text, FaultRule& rule) {
         rule.samePort = text != "next";
         return text == "same" || text == "next";
     }},
}};

std::string quoted(std::string_view text)
{
    return std::string(1, '"').append(text) + '"';
}

std::string unknownField(std::string_view name)
{
    std::string message = quoted(name) + " is not part of a fault; these are:";
    for (const Field& field : FIELDS)
        message += (&field == FIELDS.data() ? " " : ", ") + std::string(field.name);
    return message;
}

}  // namespace

std::variant<FaultRule, std::string> parseFault(std::string_view text)
{
    FaultRule rule;
    std::array<const Field*, SLOT_COUNT> seen{};
    while (true) {
        const std::string_view item = text.substr(0, text.find(','));
        const size_t equals = item.find('=');
        const std::string_view name = item.substr(0, equals);
        const std::string_view value = equals == std::string_view::npos ? "" : item.substr(equals + 1);
        const auto* field =
            std::find_if(FIELDS.begin(), FIELDS.end(), [&](const Field& candidate) { return candidate.name == name; });
        if (field == FIELDS.end())
            return unknownField(name);
        if (const Field* before = std::exchange(seen[field->slot], field))
            return before == field ? quoted(name) + " stands there twice"
                                   : quoted(before->name) + " and " + quoted(name) + " exclude each other";
        if (!field->parse(value, rule))
            return quoted(item) + " should have " + field->allowed + " after the name";
        if (item.size() == text.size())
            break;
        text.remove_prefix(item.size() + 1);
    }
    if (!seen[KIND])
        return "it does not say what goes wrong: error=, short=, garbage or delay=";
    if (seen[REPLUG] && rule.kind != FaultKind::UNPLUG)
        return "only a camera that was unplugged (error=NO_DEVICE) can be plugged in again";
    if (seen[PORT] && !seen[REPLUG])
        return "a port is for a camera that is plugged in again (replug=SECONDS)";
    if (rule.kind == FaultKind::BUSY && (seen[TRANSFER] || seen[ENDPOINT] || rule.since == FaultRule::Since::EXPOSURE))
        return "a camera is busy when it is opened (open=N), whatever is transferred then";
    return rule;
}

}  // namespace vornsim
