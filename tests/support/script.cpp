// SPDX-License-Identifier: MIT
#include "script.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "vornccd.h"

namespace vorntest {

namespace {

constexpr size_t HEADER_LENGTH = 16;  // of a bridge request
constexpr unsigned EP_REQUEST = 0x04;
constexpr size_t SEQUENCE_OFFSET = 1;
constexpr unsigned CONTROL_TIMEOUT_MS = 3000;

std::string hexByte(unsigned value)
{
    return toHex({{static_cast<uint8_t>(value)}});
}

bool matches(const std::vector<int>& expected, const std::vector<uint8_t>& actual)
{
    return std::equal(expected.begin(), expected.end(), actual.begin(), actual.end(),
                      [](int wanted, uint8_t byte) { return wanted < 0 || wanted == byte; });
}

}  // namespace

void reportMisuse(const std::string& text)
{
    ADD_FAILURE() << text;
}

std::string zeros(size_t count)
{
    std::string hex;
    for (size_t i = 0; i < count; i++)
        hex += " 00";
    return hex;
}

std::string toHex(std::span<const uint8_t> bytes)
{
    std::string hex;
    for (const uint8_t byte : bytes) {
        char text[4];
        (void)snprintf(text, sizeof text, "%s%02X", hex.empty() ? "" : " ", byte);
        hex += text;
    }
    return hex;
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
    std::vector<uint8_t> bytes;
    for (const int value : parseHex(hex))
        bytes.push_back(static_cast<uint8_t>(value));
    return bytes;
}

std::string ScriptStep::text() const
{
    std::string shown = call.text();
    for (size_t i = 0; i < std::min<size_t>(sent.size(), 64); i++)
        shown += " " + (sent[i] < 0 ? "??" : hexByte(static_cast<unsigned>(sent[i])));
    return result < 0 ? shown + " -> " + libusb_error_name(result) : shown;
}

Script::Script(uint16_t productId) : device(productId, *this)
{
    bus().reset();
    bus().attach(device);
    bus().pauseListener = this;
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

void Script::clear()
{
    steps_.clear();
    played_ = 0;
    broken_ = false;
    if (unplugged_)
        lastSequence_ = -1;  // requests went unseen
    unplugged_ = false;
    timeoutMs_ = 30000;
}

Steps& Steps::append(const Steps& other, size_t first, size_t last)
{
    for (size_t i = first; i < std::min(last, other.size()); i++) {
        steps_.push_back(other[i]);
        if (other[i].ifFailing.group == 0)
            steps_.back().ifFailing = mark_;
    }
    return *this;
}

Steps& Steps::cut(size_t count)
{
    steps_.resize(std::min(count, steps_.size()));
    return *this;
}

Steps& Steps::cutBefore(const std::string& hex)
{
    const auto first = std::find_if(steps_.begin(), steps_.end(),
                                    [&](const ScriptStep& step) { return step.text().find(hex) != std::string::npos; });
    EXPECT_NE(first, steps_.end()) << "no step sends " << hex;
    steps_.erase(first, steps_.end());
    return *this;
}

Steps& Steps::mark(Consequence::Kind kind)
{
    static unsigned groups = 0;
    mark_ = {.kind = kind, .group = ++groups};
    return *this;
}

Steps& Steps::ends(const Steps& afterwards, const char* error)
{
    mark(Consequence::ENDS);
    mark_.afterwards = std::make_shared<const Steps>(afterwards);
    mark_.error = error;
    return *this;
}

Steps& Steps::harmless()
{
    return mark(Consequence::HARMLESS);
}

Steps& Steps::untried()
{
    return mark(Consequence::UNTRIED);
}

Steps& Steps::add(BusCall call, Place place, std::vector<int> sent)
{
    if (!sent.empty())
        call.length = static_cast<int>(sent.size());
    steps_.push_back({.call = std::move(call), .sent = std::move(sent), .place = place, .ifFailing = mark_});
    return *this;
}

Steps& Steps::out(unsigned endpoint, const std::string& hex, Place place)
{
    return add({.kind = BusCall::BULK_OUT, .endpoint = endpoint, .timeoutMs = timeoutMs_}, place, parseHex(hex));
}

Steps& Steps::in(unsigned endpoint, int length, const std::string& hex, Place place)
{
    return in(endpoint, length, parseBytes(hex), place);
}

Steps& Steps::in(unsigned endpoint, int length, std::vector<uint8_t> bytes, Place place)
{
    EXPECT_LE(bytes.size(), static_cast<size_t>(length)) << "reply too long, " << place.file << ":" << place.line;
    add({.kind = BusCall::BULK_IN, .endpoint = endpoint, .length = length, .timeoutMs = timeoutMs_}, place);
    steps_.back().reply = std::move(bytes);
    return *this;
}

Steps& Steps::controlOut(unsigned request, unsigned value, unsigned index, const std::string& hex, Place place)
{
    add({BusCall::CONTROL_OUT, 0, 0x40, request, value, index, 0, CONTROL_TIMEOUT_MS}, place, parseHex(hex));
    return fails(steps_.back().call.length);
}

Steps& Steps::controlIn(unsigned request, unsigned value, unsigned index, int length, const std::string& hex,
                        Place place)
{
    add({BusCall::CONTROL_IN, 0, 0xC0, request, value, index, length, CONTROL_TIMEOUT_MS}, place);
    steps_.back().reply = parseBytes(hex);
    return fails(static_cast<int>(steps_.back().reply.size()));
}

Steps& Steps::pause(long us, Place place)
{
    return add({.kind = BusCall::PAUSE, .pauseUs = us}, place);
}

Steps& Steps::fails(int result)
{
    steps_.back().result = result;
    if (result < 0)
        steps_.back().reply.clear();
    return *this;
}

Steps& Steps::timeout(unsigned ms)
{
    timeoutMs_ = ms;
    return *this;
}

Steps& Steps::parOut(const std::string& hex, Place place)
{
    out(0x02, hex, place);
    out(EP_REQUEST, "0A ?? FF ...", place);
    return in(0x86, 4, "00 00 00 00", place);
}

Steps& Steps::parIn(unsigned length, const std::string& hex, Place place)
{
    out(EP_REQUEST,
        "09 ?? 00 00 " + hexByte(length >> 16) + " " + hexByte(length >> 24) + " " + hexByte(length) + " " +
            hexByte(length >> 8) + " ...",
        place);
    return in(0x88, static_cast<int>(length) + 1, hex.empty() ? "" : hex + " 00", place);
}

Steps& Steps::command(const std::string& hex, Place place)
{
    return parOut("43 00 4D 00 44 00 " + hex, place);
}

Steps& Steps::i2cWrite(const std::string& hex, Place place)
{
    const auto length = static_cast<unsigned>(parseHex(hex).size());
    out(EP_REQUEST, "04 ?? FF 00 00 00 01 00 00 00 00 00 " + hexByte(length) + " 00 00 00 " + hex, place);
    return in(0x86, 4, "00 00 00 00", place);
}

Steps& Steps::eepRead(unsigned address, unsigned length, const std::string& hex, Place place)
{
    i2cWrite("A2 00 " + hexByte(address), place);
    out(EP_REQUEST, "04 ?? FF 00 00 00 01 00 " + hexByte(length) + " 00 00 00 01 00 00 00 A3", place);
    return in(0x86, static_cast<int>(length) + 4, "00 " + hex + " 00 00 00", place);
}

Steps& Steps::firmwareUpload(Place place)
{
    controlOut(0xA0, 0xE600, 0, "01", place);
    for (size_t at = 0; FIRMWARE[at] != 0; at += 3UL + FIRMWARE[at]) {
        std::string data;
        for (size_t i = 0; i < FIRMWARE[at]; i++)
            data += hexByte(FIRMWARE[at + 3 + i]) + " ";
        controlOut(0xA0, FIRMWARE[at + 1] + 256U * FIRMWARE[at + 2], 0, data, place);
    }
    return controlOut(0xA0, 0xE600, 0, "00", place);
}

Steps& Steps::emptyFlush(unsigned length, Place place)
{
    timeout(100).parIn(length, "", place).fails(LIBUSB_ERROR_TIMEOUT);
    return timeout(30000);
}

void Script::fail(const std::string& problem, const ScriptStep* step, const BusCall& call)
{
    broken_ = true;
    const Place place = step != nullptr ? step->place : Place::here();
    ADD_FAILURE_AT(place.file, place.line)
        << problem << " at step " << played_ + 1 << " of " << steps_.size()
        << "\n  expected: " << (step != nullptr ? step->text() : "nothing more") << "\n  actual:   " << call.text();
}

ScriptStep* Script::expect(const BusCall& call)
{
    if (broken_)
        return nullptr;
    ScriptStep* step = played_ < steps_.size() ? &steps_[played_] : nullptr;
    if (step == nullptr && unplugged_)
        return nullptr;
    if (step == nullptr || step->call.kind != call.kind) {
        fail("unexpected call", step, call);
        return nullptr;
    }
    BusCall bare = call;
    bare.bytes.clear();
    std::string problem = bare == step->call && matches(step->sent, call.bytes) ? "" : "wrong call";
    if (call.kind == BusCall::BULK_OUT && call.endpoint == EP_REQUEST && call.bytes.size() > SEQUENCE_OFFSET) {
        const int sequence = call.bytes[SEQUENCE_OFFSET];
        if (problem.empty() && step->sent[SEQUENCE_OFFSET] < 0 && lastSequence_ >= 0 &&
            sequence != ((lastSequence_ + 1) & 0xFF))
            problem = "wrong sequence byte after " + hexByte(static_cast<unsigned>(lastSequence_));
        lastSequence_ = sequence;
    }
    if (!problem.empty()) {
        fail(problem, step, call);
        return nullptr;
    }
    played_++;
    return step;
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

void Script::paused(long us)
{
    BusCall call;
    call.pauseUs = us;
    (void)expect(call);
}

void forEachFailure(const Steps& whole, const std::function<void(const Steps& steps, bool ok)>& run)
{
    constexpr size_t LONG_GROUP = 100;
    constexpr size_t SAMPLE_STRIDE = 61;
    constexpr size_t TAIL = 5;  // tried whole
    size_t begin = 0;           // of the group
    size_t end = 0;
    for (size_t failing = 0; failing < whole.size(); failing++) {
        const ScriptStep& step = whole[failing];
        const Consequence& meaning = step.ifFailing;
        if (failing == end) {
            begin = failing;
            while (end < whole.size() && whole[end].ifFailing.group == meaning.group)
                end++;
        }
        const bool sampled = meaning.group == 0 || end - begin < LONG_GROUP || (failing - begin) % SAMPLE_STRIDE == 0 ||
                             failing + TAIL >= end;
        if (!step.call.countable() || meaning.kind == Consequence::UNTRIED || !sampled)
            continue;
        SCOPED_TRACE("failing step " + std::to_string(failing + 1) + ": " + step.text());
        Steps steps;
        steps.append(whole, 0, failing + 1).fails(LIBUSB_ERROR_TIMEOUT);
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
