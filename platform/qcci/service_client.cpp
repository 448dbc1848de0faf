#include "qcci/service_client.h"

#include <errno.h>

#include "qcci/qmi_codec.h"
#include "qcci/trace.h"

namespace qmi {
namespace {

constexpr uint32_t kConnectLimitMs = 1000;

// What a failed send means to the caller.
qmi_client_error_type send_error(int error) {
  switch (error) {
    case 0: return QMI_NO_ERR;
    case ETIMEDOUT: return QMI_TIMEOUT_ERR;
    case ENODEV:
    case ECONNRESET:
    case ECONNREFUSED:
    case EPIPE:
    case ENOTCONN: return QMI_SERVICE_ERR;
    default: return QMI_EXTENDED_ERR;
  }
}

}  // namespace

qmi_client_error_type ServiceClient::start() {
  {
    Opened opened = open_endpoint(timing::peer_deadline(kConnectLimitMs));
    if (opened.endpoint == nullptr) return opened.error;
    MutexLock hold(lock_);
    open(std::move(opened.endpoint));
    hand_over();
  }
  auto self = std::static_pointer_cast<ServiceClient>(shared_from_this());
  Directory& directory = Directory::instance();
  directory.watch(service, self, false);
  if (!directory.runs(service, server_)) return QMI_SERVICE_ERR;
  return QMI_NO_ERR;
}

qmi_client_error_type ServiceClient::set_error_cb(qmi_client_error_cb error_cb, void* cb_data) {
  MutexLock hold(lock_);
  error_cb_ = error_cb;
  error_cb_data_ = cb_data;
  if (gone_) post_error();
  return QMI_NO_ERR;
}

void ServiceClient::post_error() {
  if (error_cb_ == nullptr) return;
  lane_->post([cb = error_cb_, handle = handle, data = error_cb_data_] {
    cb(handle, QMI_SERVICE_ERR, data);
  });
}

uint16_t ServiceClient::next_transaction() {
  if (++last_transaction_ == 0) ++last_transaction_;
  return last_transaction_;
}

qmi_client_error_type ServiceClient::send_sync(uint16_t message, const void* req,
                                               unsigned int req_len, void* resp,
                                               unsigned int resp_len, unsigned int time_out_ms) {
  const Message* request = service.find(Kind::Request, message);
  const Message* response = service.find(Kind::Response, message);
  if (request == nullptr || response == nullptr) return QMI_INTERNAL_ERR;
  if (req_len != request->c_bytes || (req == nullptr && req_len > 0)) return QMI_INTERNAL_ERR;
  if (resp_len != response->c_bytes || resp == nullptr) return QMI_INTERNAL_ERR;

  const auto result = [&] {
    MutexLock hold(lock_);
    Pending pending{.response = *response, .resp = resp, .transaction = next_transaction()};
    pending_.push_back(&pending);
    const auto outcome = exchange(*request, req, pending, timing::peer_deadline(time_out_ms));
    std::erase(pending_, &pending);
    return outcome;
  }();
  // What arrived before the answer has been heard before the caller goes on.
  lane_->settle();
  return result;
}

qmi_client_error_type ServiceClient::exchange(const Message& request, const void* req,
                                              Pending& pending, timing::Deadline deadline) {
  if (released_) return QMI_PORT_NOT_OPEN_ERR;
  if (gone_ || !is_open()) return QMI_SERVICE_ERR;

  request_.resize(kHeaderBytes + request.wire_max);
  const auto body = encode(request, req, std::span(request_).subspan(kHeaderBytes));
  if (!body) return QMI_INTERNAL_ERR;
  write_header({Kind::Request, pending.transaction, request.id, static_cast<uint16_t>(*body)},
               request_.data());
  const auto packet = std::span(request_).first(kHeaderBytes + *body);
  if (trace::is_on()) {
    const auto asked = packet.subspan(kHeaderBytes);
    pending.asked.assign(asked.begin(), asked.end());
    trace::record('>', service, packet, asked);
  }
  prepare_to_wait();
  if (const int error = endpoint_->send(server_, packet, deadline); error != 0) {
    hand_over();
    return send_error(error);
  }
  wait(deadline, [&]() REQUIRES(lock_) { return pending.done || gone_ || released_; });
  // The response may have been sent before the service left: what is there already counts.
  if (!pending.done) drain();
  if (pending.done) return pending.result;
  if (released_) return QMI_PORT_NOT_OPEN_ERR;
  return gone_ ? QMI_SERVICE_ERR : QMI_TIMEOUT_ERR;
}

void ServiceClient::on_packet(Address source, std::span<const uint8_t> packet) {
  if (source != server_) return;  // a port is soon reused: somebody else's late packet
  if (trace::is_on()) trace_arrived(packet);
  const auto header = read_header(packet);
  if (!header) return;
  if (header->kind == Kind::Response) on_response(*header, packet);
  if (header->kind == Kind::Indication && is_whole(*header, packet)) {
    on_indication(*header, packet.subspan(kHeaderBytes));
  }
}

ServiceClient::Pending* ServiceClient::find_pending(const Header& header) {
  for (Pending* pending : pending_) {
    if (pending->transaction == header.transaction && pending->response.id == header.message) {
      return pending;
    }
  }
  return nullptr;
}

void ServiceClient::trace_arrived(std::span<const uint8_t> packet) {
  const auto header = read_header(packet);
  const bool answers = header && header->kind == Kind::Response;
  const Pending* pending = answers ? find_pending(*header) : nullptr;
  trace::record(
      '<', service, packet,
      pending != nullptr ? std::span<const uint8_t>(pending->asked) : std::span<const uint8_t>());
}

void ServiceClient::on_response(const Header& header, std::span<const uint8_t> packet) {
  Pending* const found = find_pending(header);
  if (found == nullptr || found->done) return;  // its request has timed out, or a repeat
  Pending& pending = *found;
  const bool good = is_whole(header, packet) &&
                    decode(pending.response, packet.subspan(kHeaderBytes), pending.resp);
  pending.result = good ? QMI_NO_ERR : QMI_INTERNAL_ERR;
  pending.done = true;
}

void ServiceClient::on_indication(const Header& header, std::span<const uint8_t> body) {
  if (ind_cb_ == nullptr) return;
  lane_->post([cb = ind_cb_, handle = handle, data = ind_cb_data_, id = header.message,
               bytes = std::vector<uint8_t>(body.begin(), body.end())]() mutable {
    cb(handle, id, bytes.data(), static_cast<unsigned int>(bytes.size()), data);
  });
}

void ServiceClient::on_closed() {
  service_gone();
}

void ServiceClient::service_gone() {
  if (gone_ || released_) return;
  gone_ = true;
  post_error();
  interrupt();
}

bool ServiceClient::on_service(bool there, const Server& server) {
  if (there || server.address != server_) return true;
  MutexLock hold(lock_);
  service_gone();
  return false;
}

void ServiceClient::release() {
  {
    MutexLock hold(lock_);
    released_ = true;
    close();
  }
  lane_->close();
}

qmi_client_error_type Notifier::set_notify_cb(qmi_client_notify_cb notify_cb, void* cb_data) {
  MutexLock hold(lock_);
  notify_cb_ = notify_cb;
  cb_data_ = cb_data;
  if (servers_ > 0) post(true);
  return QMI_NO_ERR;
}

void Notifier::post(bool there) {
  if (notify_cb_ == nullptr) return;
  lane_->post([cb = notify_cb_, handle = handle, object = &service, there, data = cb_data_] {
    cb(handle, object, there ? QMI_CLIENT_SERVICE_COUNT_INC : QMI_CLIENT_SERVICE_COUNT_DEC, data);
  });
}

bool Notifier::on_service(bool there, const Server&) {
  signal_();
  MutexLock hold(lock_);
  servers_ += there ? 1 : -1;
  post(there);
  return true;
}

}  // namespace qmi
