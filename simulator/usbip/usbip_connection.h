// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bus/stream_session.h"
#include "bus/urb_queue.h"
#include "export_table.h"
#include "usbip_messages.h"

namespace vornsim::usbip {

/// The server's end of one connection: a request first; after a successful import the transfers of the device, until
/// either side closes the connection, which unplugs the device as far as the client is concerned. The device itself
/// stays as it was and can be imported again.
///
/// A client that sends what it must not, or has more under way than any kernel would, is dropped.
class UsbIpConnection final : public StreamSession {
public:
    /// @p fd, which stays the caller's, and the others must outlive the connection.
    UsbIpConnection(int fd, ExportTable& exports, const Clock& clock);
    ~UsbIpConnection() override;

    bool onReadable() override;
    bool onWritable() override;
    bool onTime() override;
    bool wantsToWrite() const override { return !output_.empty(); }
    int64_t nextWakeUs() const override;

    /// Why the connection ended, for people; empty when the client ended it as it may.
    const std::string& complaint() const { return complaint_; }

private:
    /// What has to be sent: some bytes, and the data of a transfer after them.
    struct Output {
        std::vector<uint8_t> head;
        std::unique_ptr<Urb> urb;  ///< null: no data
        size_t dataLength = 0;
        size_t sent = 0;  ///< bytes of both
    };

    bool end(const std::string& complaint);
    bool takeMessages();

    // One message each. @return whether the connection goes on.
    bool handle(const Incomplete& incomplete) const;
    bool handle(const Malformed& malformed);
    bool handle(const ListRequest& request);
    bool handle(const ImportRequest& request);
    bool handle(const SubmitCommand& command);
    bool handle(const UnlinkCommand& command);

    void queueOutput(std::vector<uint8_t> bytes);
    void collectDone();
    void letGo(const Urb& urb);
    bool flush();

    int fd_;
    ExportTable& exports_;
    const Clock& clock_;
    const int64_t requestDeadlineUs_;  ///< clients that send nothing are dropped then
    std::vector<uint8_t> input_;
    std::deque<Output> output_;
    bool lastAnswer_ = false;  ///< the connection ends when all is sent
    Export* export_ = nullptr;
    std::optional<UrbQueue> queue_;
    size_t heldCount_ = 0;   ///< transfers under way or not sent yet
    size_t heldLength_ = 0;  ///< and their bytes
    std::string complaint_;
};

}  // namespace vornsim::usbip
