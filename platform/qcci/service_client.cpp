#include "qcci/service_client.h"

#include <errno.h>

#include "qcci/observer.h"
#include "qcci/qmi_codec.h"

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
    case ENETRESET:
    case ECONNREFUSED:
    case EPIPE:
    case ENOTCONN: return QMI_SERVICE_ERR;
    default: return QMI_EXTENDED_ERR;
  }
}

std::span<const uint8_t> body_of(std::span<const uint8_t> packet) {
  return packet.subspan(kHeaderBytes);
}

}  // namespace

qmi_client_error_type ServiceClient::start() {
  MutexLock hold(bus_lock);
  Directory& directory = Directory::instance();
  directory.watch(service, weak_from_this(), false);
  if (!directory.runs(service, server_)) return QMI_SERVICE_ERR;
  connection_ = directory.connection();
  if (!connection_->claim(server_, *this)) {
    connection_ = std::make_shared<Connection>(nullptr);
    const auto error = connection_->open(timing::peer_deadline(kConnectLimitMs));
    if (error != QMI_NO_ERR) return error;
    connection_->claim(server_, *this);
  }
  connection_->hand_over();
  return QMI_NO_ERR;
}

qmi_client_error_type ServiceClient::set_error_cb(qmi_client_error_cb error_cb, void* cb_data) {
  MutexLock hold(bus_lock);
  error_cb_ = error_cb;
  error_cb_data_ = cb_data;
  if (gone_) post_error();
  return QMI_NO_ERR;
}

void ServiceClient::post_error() {
  if (error_cb_ == nullptr) return;
  lane_->post_last([cb = error_cb_, handle = handle, data = error_cb_data_] {
    cb(handle, QMI_SERVICE_ERR, data);
  });
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
    MutexLock hold(bus_lock);
    Pending pending{.response = *response, .resp = resp};
    const auto outcome = exchange(*request, req, pending, time_out_ms);
    for (Observer* observer : observers()) observer->on_outcome(service, *request, outcome);
    return outcome;
  }();
  // What arrived before the answer has been heard before the caller goes on.
  lane_->settle();
  return result;
}

qmi_client_error_type ServiceClient::exchange(const Message& request, const void* req,
                                              Pending& pending, unsigned int time_out_ms) {
  if (released_) return QMI_PORT_NOT_OPEN_ERR;
  if (gone_) return QMI_SERVICE_ERR;
  pending.packet.resize(kHeaderBytes + request.wire_max);
  const auto body = encode(request, req, std::span(pending.packet).subspan(kHeaderBytes));
  if (!body) return QMI_INTERNAL_ERR;
  pending.packet.resize(kHeaderBytes + *body);
  pending.transaction = connection_->next_transaction();
  write_header({Kind::Request, pending.transaction, request.id, static_cast<uint16_t>(*body)},
               pending.packet.data());
  for (Observer* observer : observers()) {
    observer->on_crossing({'>', service, pending.packet, body_of(pending.packet), &request, req});
  }
  pending_.push_back(&pending);
  const auto result = send_and_wait(pending, timing::peer_deadline(time_out_ms));
  std::erase(pending_, &pending);
  return result;
}

qmi_client_error_type ServiceClient::send_and_wait(const Pending& pending,
                                                   timing::Deadline deadline) {
  if (const int error = connection_->send(server_, pending.packet, deadline); error != 0) {
    connection_->hand_over();
    return send_error(error);
  }
  connection_->wait(deadline,
                    [&]() REQUIRES(bus_lock) { return pending.done || gone_ || released_; });
  // The response may have been sent before the service left: what is there already counts.
  if (!pending.done) connection_->drain();
  if (pending.done) return pending.result;
  if (released_) return QMI_PORT_NOT_OPEN_ERR;
  return gone_ ? QMI_SERVICE_ERR : QMI_TIMEOUT_ERR;
}

void ServiceClient::on_packet(std::span<const uint8_t> packet) {
  const auto header = read_header(packet);
  const bool whole = header && is_whole(*header, packet);
  const bool answers = header && header->kind == Kind::Response;
  Pending* const asked = answers ? find_pending(*header) : nullptr;
  // Else its request has timed out, or it is a repeat.
  const bool awaited = asked != nullptr && !asked->done;
  if (awaited) {
    const bool good = whole && decode(asked->response, body_of(packet), asked->resp);
    asked->result = good ? QMI_NO_ERR : QMI_INTERNAL_ERR;
    asked->done = true;
  }
  if (!observers().empty()) {
    const auto request = asked != nullptr ? body_of(asked->packet) : std::span<const uint8_t>();
    const void* decoded = awaited && asked->result == QMI_NO_ERR ? asked->resp : nullptr;
    show_arrived(whole ? &*header : nullptr, packet, request, decoded);
  }
  if (whole && header->kind == Kind::Indication) on_indication(*header, body_of(packet));
}

void ServiceClient::show_arrived(const Header* header, std::span<const uint8_t> packet,
                                 std::span<const uint8_t> request, const void* decoded) {
  const Message* message = header != nullptr && header->kind != Kind::Request
                               ? service.find(header->kind, header->message)
                               : nullptr;
  std::vector<uint8_t> c_struct;
  if (message != nullptr && header->kind == Kind::Indication) {
    c_struct.resize(message->c_bytes);
    if (decode(*message, body_of(packet), c_struct.data())) decoded = c_struct.data();
  }
  for (Observer* observer : observers()) {
    observer->on_crossing({'<', service, packet, request, message, decoded});
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
  if (has_own_connection()) connection_->interrupt();
}

bool ServiceClient::on_service(bool there, const Server& server) {
  if (there || server.address != server_) return true;
  service_gone();
  return false;
}

bool ServiceClient::has_own_connection() const {
  return connection_ != nullptr && connection_ != Directory::instance().connection();
}

void ServiceClient::release() {
  std::shared_ptr<Connection> own;  // closed when nobody is kept waiting for that
  {
    MutexLock hold(bus_lock);
    released_ = true;
    if (has_own_connection()) {
      own = connection_;
      own->close();
    } else if (connection_ != nullptr) {
      connection_->forget(*this);
      connection_->changed();
      if (!pending_.empty()) Directory::instance().stir();
    }
  }
  lane_->close();
}

qmi_client_error_type Notifier::set_notify_cb(qmi_client_notify_cb notify_cb, void* cb_data) {
  MutexLock hold(bus_lock);
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
  servers_ += there ? 1 : -1;
  post(there);
  return true;
}

}  // namespace qmi
