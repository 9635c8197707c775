// SPDX-License-Identifier: MIT
#include "script.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "vornccd.h"

namespace vorntest {

namespace {

constexpr size_t HEADER_LENGTH = 16;  // of a bridge request
constexpr unsigned EP_REQUEST = 0x04;
constexpr size_t SEQUENCE_OFFSET = 1;

}  // namespace

void reportMisuse(const std::string& text)
{
    ADD_FAILURE() << text;
}

std::vector<int> parseHex(const std::string& hex)
{
    std::vector<int> bytes;
    std::istringstream words(hex);
    for (std::string word; words >> word;) {
        if (word == "...")
            bytes.resize(std::max(bytes.size(), HEADER_LENGTH), 0);
        else
            bytes.push_back(word == "??" ? -1 : std::stoi(word, nullptr, 16));
    }
    return bytes;
}

std::vector<uint8_t> parseBytes(const std::string& hex)
{
    const std::vector<int> values = parseHex(hex);
    return {values.begin(), values.end()};
}

std::string hexByte(size_t value)
{
    const char* const digits = "0123456789ABCDEF";
    return {digits[value >> 4 & 0xF], digits[value & 0xF]};
}

std::string toHex(std::span<const uint8_t> bytes)
{
    std::string hex;
    for (const uint8_t byte : bytes)
        hex += (hex.empty() ? "" : " ") + hexByte(byte);
    return hex;
}

std::string zeros(size_t count)
{
    std::string hex;
    for (size_t i = 0; i < count; i++)
        hex += " 00";
    return hex;
}

bool ScriptStep::matches(BusCall made) const
{
    const std::vector<uint8_t> bytes = std::exchange(made.bytes, {});
    return made == call && std::equal(sent.begin(), sent.end(), bytes.begin(), bytes.end(),
                                      [](int wanted, uint8_t byte) { return wanted < 0 || wanted == byte; });
}

std::string ScriptStep::text() const
{
    std::string shown = call.text();
    for (size_t i = 0; i < std::min<size_t>(sent.size(), 64); i++)
        shown += " " + (sent[i] < 0 ? "??" : hexByte(static_cast<size_t>(sent[i])));
    return result < 0 ? shown + " -> " + libusb_error_name(result) : shown;
}

Steps& Steps::cutBefore(const std::string& hex)
{
    const auto first = std::find_if(steps_.begin(), steps_.end(),
                                    [&](const ScriptStep& step) { return step.text().find(hex) != std::string::npos; });
    EXPECT_NE(first, steps_.end()) << "no step sends " << hex;
    steps_.erase(first, steps_.end());
    return *this;
}

Steps& Steps::add(BusCall call, Place place, const std::string& sent)
{
    std::vector<int> bytes = parseHex(sent);
    if (!bytes.empty())
        call.length = static_cast<int>(bytes.size());
    steps_.push_back({.call = std::move(call), .sent = std::move(bytes), .place = place, .ifFailing = mark_});
    return *this;
}

Steps& Steps::firmwareUpload(Place place)
{
    controlOut(0xA0, 0xE600, 0, "01", place);
    for (size_t at = 0; FIRMWARE[at] != 0; at += 3UL + FIRMWARE[at])
        controlOut(0xA0, FIRMWARE[at + 1] + 256U * FIRMWARE[at + 2], 0, toHex({&FIRMWARE[at + 3], FIRMWARE[at]}),
                   place);
    return controlOut(0xA0, 0xE600, 0, "00", place);
}

Script::Script() : device(0xdf34, *this)
{
    bus().reset();
    bus().attach(device);
    bus().pauseListener = [this](long us) { (void)expect({.pauseUs = us}); };
}

Script::~Script()
{
    (void)done();
    bus().reset();
}

bool Script::done(Place place)
{
    if (!broken_ && played_ < steps_.size()) {
        ADD_FAILURE_AT(place.file, place.line)
            << steps_.size() - played_ << " of " << steps_.size() << " steps are left over; the first was written at "
            << steps_[played_].place.file << ":" << steps_[played_].place.line << "\n  " << steps_[played_].text();
        broken_ = true;
    }
    return !broken_;
}

const ScriptStep* Script::expect(const BusCall& call)
{
    const ScriptStep* step = played_ < steps_.size() ? &steps_[played_] : nullptr;
    if (broken_ || (step == nullptr && unplugged_))
        return nullptr;
    std::string problem = step != nullptr && step->matches(call) ? "" : "wrong call";
    if (call.kind == BusCall::BULK_OUT && call.endpoint == EP_REQUEST && call.bytes.size() > SEQUENCE_OFFSET) {
        const int sequence = call.bytes[SEQUENCE_OFFSET];
        if (problem.empty() && step->sent[SEQUENCE_OFFSET] < 0 && lastSequence_ >= 0 &&
            sequence != ((lastSequence_ + 1) & 0xFF))
            problem = "wrong sequence byte after " + hexByte(static_cast<size_t>(lastSequence_));
        lastSequence_ = sequence;
    }
    if (problem.empty()) {
        played_++;
        return step;
    }
    broken_ = true;
    const Place place = step != nullptr ? step->place : Place::here();
    ADD_FAILURE_AT(place.file, place.line)
        << problem << " at step " << played_ + 1 << " of " << steps_.size()
        << "\n  expected: " << (step != nullptr ? step->text() : "nothing more") << "\n  actual:   " << call.text();
    return nullptr;
}

int Script::serve(const BusCall& call, std::span<uint8_t> data, int& transferred)
{
    const ScriptStep* step = expect(call);
    if (step == nullptr)
        return LIBUSB_ERROR_NO_DEVICE;
    std::copy(step->reply.begin(), step->reply.end(), data.begin());
    if (call.kind == BusCall::BULK_IN)
        transferred = static_cast<int>(step->reply.size());
    else if (step->result >= 0)
        transferred = call.length;
    return step->result;
}

void forEachFailure(const Steps& whole, const std::function<void(const Steps& steps, bool ok)>& run)
{
    constexpr size_t LONG_GROUP = 100;
    constexpr size_t SAMPLE_STRIDE = 61;
    constexpr size_t TAIL = 5;  // tried whole
    size_t begin = 0;           // of the group
    size_t end = 0;
    for (size_t failing = 0; failing < whole.size(); failing++) {
        const ScriptStep& step = whole.steps_[failing];
        const Consequence& meaning = step.ifFailing;
        if (failing == end) {
            begin = failing;
            while (end < whole.size() && whole.steps_[end].ifFailing.group == meaning.group)
                end++;
        }
        const bool sampled = meaning.group == 0 || end - begin < LONG_GROUP || (failing - begin) % SAMPLE_STRIDE == 0 ||
                             failing + TAIL >= end;
        if (!step.call.countable() || meaning.kind == Consequence::UNTRIED || !sampled)
            continue;
        SCOPED_TRACE("failing step " + std::to_string(failing + 1) + ": " + step.text());
        Steps steps = whole;
        steps.cut(failing + 1).fails(LIBUSB_ERROR_TIMEOUT);
        const bool ok = meaning.kind == Consequence::HARMLESS;
        if (ok)
            steps.append(whole, end);
        else if (meaning.afterwards != nullptr)
            steps.append(*meaning.afterwards);
        steps.error_ = ok ? "No error" : meaning.error;
        run(steps, ok);
        if (testing::Test::HasFailure())
            return;
    }
    run(whole, true);
}

}  // namespace vorntest
