// The stream to a modem behind QMUX frames: the control service, the client ids this process has,
// and whom a frame is for. A device has one user at a time, so a process has one link, shared by
// its endpoints; whichever thread waits reads for all of them.
//
// A modem has few client ids, and keeps those of a program that has ended: what was allocated is
// released at the end of the process. A sync, which would revoke those of other programs too, is
// never sent.
#pragma once

#include <map>
#include <string>

#include "descriptor.h"
#include "mutex.h"
#include "qcci/qmux_frame.h"

namespace qmi {

class QmuxLink {
 public:
  // An endpoint. Called with the link's lock held, so it must not call the link.
  class Port {
   public:
    virtual ~Port() = default;
    virtual void on_message(uint8_t service, std::span<const uint8_t> message) = 0;
    virtual void on_lost() = 0;
  };

  // Over a descriptor that does not block. What waits there is for a process that has ended.
  explicit QmuxLink(Descriptor stream);

  // The modem's services, by id, with their major versions.
  using Services = std::map<uint8_t, uint16_t>;

  enum class Greeting { Answered, Refused, Silent, Strange, Lost };

  // Opens the device at `path` through the proxy at the other end.
  Greeting open_proxied(const std::string& path, timing::Deadline deadline) EXCLUDES(lock_);

  // Asks the modem for its services, which is asked once, and waits for the answer; Strange when
  // something else than frames comes.
  Greeting greet(timing::Deadline deadline) EXCLUDES(lock_);

  // Known once the modem was greeted.
  Services services() EXCLUDES(lock_);

  void attach(Port& port) EXCLUDES(lock_);

  // Releases its client ids. Nothing is delivered to it any more.
  void detach(Port& port) EXCLUDES(lock_);

  // Sends a message, allocating a client id for the first one to a service. 0, or an errno value:
  // EDQUOT when the modem gives no id, ENODEV when the link is lost.
  int send(Port& port, uint8_t service, std::span<const uint8_t> message, timing::Deadline deadline)
      EXCLUDES(lock_);

  // Reads once what is there, and delivers it. False when the link is lost.
  bool read() EXCLUDES(lock_);

  bool is_lost() EXCLUDES(lock_);

  // Polls readable when there is something to read, or the link is lost.
  int descriptor() const { return stream_.get(); }

  // Releases all client ids, also those that are being allocated, and waits a moment for the
  // answers. Nobody sends any more: whoever would waits for the end of the process.
  void leave() EXCLUDES(lock_);

 private:
  struct ClientId {
    uint8_t service;
    uint8_t number;
    Port* port;  // null: nobody's yet
  };

  // A control request, for as long as somebody waits for its answer.
  struct Question {
    qmux::ControlId id;
    uint8_t transaction = 0;
    bool answered = false;
    std::vector<uint8_t> answer = {};  // TLVs
    WakeEvent wake = {};
  };

  int ask(Question& question, std::span<const uint8_t> body, timing::Deadline deadline)
      EXCLUDES(lock_);
  Greeting await(Question& question, timing::Deadline deadline) EXCLUDES(lock_);
  void forget(Question& question) EXCLUDES(lock_);
  int allocate(Port& port, uint8_t service, uint8_t& number, timing::Deadline deadline)
      EXCLUDES(lock_);
  bool find_id(const Port& port, uint8_t service, uint8_t& number) EXCLUDES(lock_);
  void release(const ClientId& id) EXCLUDES(lock_);
  int write(std::span<const uint8_t> frame, timing::Deadline deadline) EXCLUDES(lock_);
  bool is_leaving() EXCLUDES(lock_);

  void on_frame(const qmux::Frame& frame) REQUIRES(lock_);
  void on_answer(const qmux::ControlMessage& message) REQUIRES(lock_);
  void lose() REQUIRES(lock_);

  const Descriptor stream_;
  Mutex writing_;  // over a frame, so that frames stay whole; before `lock_`

  Mutex lock_;  // a leaf but for the ports' own
  qmux::FrameReader reader_ GUARDED_BY(lock_){qmux::Sender::Modem};
  bool lost_ GUARDED_BY(lock_) = false;
  bool leaving_ GUARDED_BY(lock_) = false;
  WakeEvent leaver_;  // wakes who leaves
  std::vector<Port*> ports_ GUARDED_BY(lock_);
  std::vector<ClientId> ids_ GUARDED_BY(lock_);
  std::vector<ClientId> being_released_ GUARDED_BY(lock_);
  std::vector<uint8_t> being_allocated_ GUARDED_BY(lock_);  // transactions
  std::vector<Question*> questions_ GUARDED_BY(lock_);
  uint8_t last_transaction_ GUARDED_BY(lock_);
  Question hello_{.id = qmux::ControlId::GetVersionInfo};
  Services services_ GUARDED_BY(lock_);
};

}  // namespace qmi
