// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "bridged_camera.h"

namespace vornsim {

/// A command while it is served.
struct CommandCall {
    uint8_t code = 0;
    std::span<const uint8_t> payload;
    std::vector<uint8_t> answer;  ///< empty for most commands
    int64_t afterUs = 2000;       ///< how long a camera that answers later takes
};

class CommandCamera;

/// A row of a family's command set.
struct Command {
    static constexpr uint8_t UNFIXED = 0xFF;
    static constexpr bool EARLY = true;  ///< served before the application was started
    static constexpr bool LATE = false;
    using Handler = void (CommandCamera::*)(CommandCall& call);

    template <typename Camera>
    Command(uint8_t itsCode, uint8_t payload, uint8_t reply, bool isEarly, void (Camera::*handler)(CommandCall& call))
        : code(itsCode),
          payloadLength(payload),
          replyLength(reply),
          early(isEarly),
          serve(static_cast<Handler>(handler))
    {
    }

    uint8_t code;
    uint8_t payloadLength;
    uint8_t replyLength;  ///< a handler's answer is cut or filled up with 0 to this length; UNFIXED: it stays as it is
    bool early;
    Handler serve;
};

/// A camera whose controller takes commands. Codes and lengths stand here from the device's side of the wire; that they
/// stand in the library as well is on purpose, so that one misunderstanding cannot hide in both. The families differ in
/// how commands and answers travel and in how numbers are written; what most of them understand is served here.
class CommandCamera : public BridgedCamera {
protected:
    static constexpr uint8_t START_APPLICATION = 44;

    enum class Numbers {
        LOW_FIRST,   ///< 16 bits, little-endian
        HIGH_FIRST,  ///< 16 bits, big-endian
        SHORT,       ///< small numbers and characters a byte, others 16 bits little-endian
    };

    CommandCamera(Numbers numbers, const CameraModel& model, const CameraOptions& options, const Clock& clock,
                  DeviceLog& log);

    /// @return the command set, or its row of this code or null.
    virtual std::span<const Command> commands() const = 0;
    const Command* findCommand(uint8_t code) const;

    /// Serves a command whose payload is complete. @return its answer.
    CommandCall serve(const Command& command, std::span<const uint8_t> payload);

    /// Appends a number that fits a byte, or one that does not, in the family's manner.
    void put(CommandCall& call, unsigned value) const;
    void putWide(CommandCall& call, unsigned value) const;
    /// @return the number in the first two bytes of a payload.
    unsigned argument(const CommandCall& call) const;

    /// | Content of a description                                                              |
    /// |---------------------------------------------------------------------------------------|
    /// | minor and major version, model and manufacturer, each ended by 0                      |
    /// | then wide: flags, columns, rows, pixel width and height in 0.01 micrometre, highest   |
    /// | binnings, well capacity                                                               |
    void putDescription(CommandCall& call, unsigned flags, unsigned columns, unsigned rows) const;

    // Handlers.
    void countSensors(CommandCall& call);
    void measureTemperature(CommandCall& call);
    void describeCooler(CommandCall& call);
    void reportCooling(CommandCall& call);
    void setCooling(CommandCall& call);
    void warmUp(CommandCall& call);
    void closeRelay(CommandCall& call);
    void openRelays(CommandCall& call);
    void reportFilter(CommandCall& call);
    void setFilter(CommandCall& call);

private:
    Numbers numbers_;
};

/// A camera whose answers leave over the parallel bus. While its application starts, every word that is read there is
/// the current status: 'B', then 'I'.
class AnsweringCamera : public CommandCamera {
public:
    void bridgeStarted() override;
    OfferedWords offeredWords(int64_t nowUs) override;
    void wordsTaken(size_t byteCount) override;

protected:
    using CommandCamera::CommandCamera;

    /// Serves a command if that is possible now, and offers its answer. Whatever is left of the answer before is lost.
    void execute(const Command& command, std::span<const uint8_t> payload);
    /// The application is up in @p durationUs.
    void beginStart(int64_t durationUs);

private:
    /// @return the bus words of an answer.
    virtual std::vector<uint8_t> words(std::vector<uint8_t> answer) const { return answer; }

    bool started_ = false;   // the application has been started since power-up
    bool starting_ = false;  // the host is polling for the end of the start
    int64_t startedAtUs_ = 0;
    std::array<uint8_t, 2> startStatus_{};
    uint8_t answeredCode_ = 0;  // the command whose answer is on the bus
};

/// @return how complaints call a command.
std::string commandName(uint8_t code);

}  // namespace vornsim
