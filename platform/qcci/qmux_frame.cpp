#include "qcci/qmux_frame.h"

#include <string.h>

#include "qcci/packet.h"

namespace qmi::qmux {
namespace {

constexpr uint8_t kMarker = 0x01;
constexpr size_t kControlHeaderBytes = 6;

uint16_t word(const uint8_t* bytes) {
  return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

void append_word(std::vector<uint8_t>& bytes, size_t word) {
  bytes.push_back(static_cast<uint8_t>(word));
  bytes.push_back(static_cast<uint8_t>(word >> 8));
}

size_t header_bytes(uint8_t service) {
  return service == kControlService ? kControlHeaderBytes : kHeaderBytes;
}

// The size of the frame that begins with `bytes`, as soon as it is told; 0 when none does. The
// message ends in the length of what follows it, which tells a marker from a byte like it.
std::optional<size_t> frame_size(Sender sender, std::span<const uint8_t> bytes) {
  if (bytes[0] != kMarker) return 0;
  if (bytes.size() >= 4 && bytes[3] != static_cast<uint8_t>(sender)) return 0;
  if (bytes.size() < 5) return std::nullopt;
  const size_t size = size_t{1} + word(&bytes[1]);
  const size_t body_at = kFrontBytes + header_bytes(bytes[4]);
  if (size < body_at) return 0;
  if (bytes.size() < body_at) return std::nullopt;
  return size == body_at + word(&bytes[body_at - 2]) ? size : 0;
}

}  // namespace

std::vector<uint8_t> make_frame(Sender sender, const Frame& frame) {
  const size_t size = kFrontBytes + frame.message.size();
  if (size > kMaxFrameBytes) return {};
  std::vector<uint8_t> bytes = {kMarker};
  bytes.reserve(size);
  append_word(bytes, size - 1);
  bytes.insert(bytes.end(), {static_cast<uint8_t>(sender), frame.service, frame.client});
  bytes.insert(bytes.end(), frame.message.begin(), frame.message.end());
  return bytes;
}

FrameReader::FrameReader(Sender sender) : sender_(sender), buffer_(new uint8_t[kMaxFrameBytes]) {}

std::span<uint8_t> FrameReader::room() {
  if (begin_ > 0) memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  return {buffer_.get() + end_, kMaxFrameBytes - end_};
}

std::optional<Frame> FrameReader::next() {
  while (begin_ < end_) {
    const std::span<const uint8_t> bytes(buffer_.get() + begin_, end_ - begin_);
    const auto size = frame_size(sender_, bytes);
    if (!size || *size > bytes.size()) break;
    if (*size > 0) {
      begin_ += *size;
      return Frame{bytes[4], bytes[5], bytes.subspan(kFrontBytes, *size - kFrontBytes)};
    }
    has_skipped_ = true;
    ++begin_;
  }
  return std::nullopt;
}

ControlMessage read_control(std::span<const uint8_t> message) {
  return {static_cast<ControlKind>(message[0]), message[1],
          static_cast<ControlId>(word(&message[2])), message.subspan(kControlHeaderBytes)};
}

std::vector<uint8_t> make_control_frame(Sender sender, const ControlMessage& message) {
  std::vector<uint8_t> bytes = {static_cast<uint8_t>(message.kind), message.transaction};
  append_word(bytes, static_cast<uint16_t>(message.id));
  append_word(bytes, message.body.size());
  bytes.insert(bytes.end(), message.body.begin(), message.body.end());
  return make_frame(sender, {kControlService, 0, bytes});
}

void append_tlv(std::vector<uint8_t>& body, uint8_t tlv, std::span<const uint8_t> value) {
  body.push_back(tlv);
  append_word(body, value.size());
  body.insert(body.end(), value.begin(), value.end());
}

}  // namespace qmi::qmux
