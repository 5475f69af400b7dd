#include "snmp/exchange.h"

#include <poll.h>

#include <cerrno>

namespace snmplumi {
namespace {

struct Waiter {
  bool waiting = true;
  int status = STAT_ERROR;
  netsnmp_pdu *response = nullptr;
};

// Runs under NetSnmpMutex, inside snmp_sess_read2 or snmp_sess_timeout.
int OnAnswer(int operation, netsnmp_session *session, int, netsnmp_pdu *pdu, void *magic) {
  auto *waiter = static_cast<Waiter *>(magic);
  waiter->waiting = false;
  if (operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE && pdu != nullptr &&
      pdu->command == SNMP_MSG_RESPONSE) {
    waiter->response = snmp_clone_pdu(pdu);
    waiter->status = waiter->response != nullptr ? STAT_SUCCESS : STAT_ERROR;
    session->s_snmp_errno = SNMPERR_SUCCESS;
  } else if (operation == NETSNMP_CALLBACK_OP_TIMED_OUT) {
    waiter->status = STAT_TIMEOUT;
    session->s_snmp_errno = SNMPERR_TIMEOUT;
  } else {
    waiter->status = STAT_ERROR;
  }
  return 1;
}

int PollMillis(const timeval &timeout) {
  long millis = timeout.tv_sec * 1000L + (timeout.tv_usec + 999) / 1000;
  return millis > 60000 ? 60000 : static_cast<int>(millis);
}

}  // namespace

int Exchange(Session &session, netsnmp_pdu *pdu, netsnmp_pdu **response) {
  *response = nullptr;
  std::lock_guard<std::mutex> one_request(session.in_use);
  void *handle = session.handle;
  Waiter waiter;
  int socket = -1;
  {
    std::lock_guard<std::mutex> lock(NetSnmpMutex());
    if (handle == nullptr || snmp_sess_async_send(handle, pdu, OnAnswer, &waiter) == 0) {
      snmp_free_pdu(pdu);
      return STAT_ERROR;
    }
    netsnmp_transport *transport = snmp_sess_transport(handle);
    socket = transport != nullptr ? transport->sock : -1;
  }
  // Every way out of this loop passes through OnAnswer, so net-snmp keeps no pointer to
  // waiter once it returns.
  while (waiter.waiting) {
    timeval timeout{};
    {
      std::lock_guard<std::mutex> lock(NetSnmpMutex());
      int fds = 0;
      int block = 1;
      netsnmp_large_fd_set unused;
      netsnmp_large_fd_set_init(&unused, FD_SETSIZE);
      snmp_sess_select_info2_flags(handle, &fds, &unused, &timeout, &block,
                                   NETSNMP_SELECT_NOALARMS);
      netsnmp_large_fd_set_cleanup(&unused);
      if (block == 1) {  // nothing outstanding any more: the request is gone
        waiter.waiting = false;
        break;
      }
    }
    pollfd readable{socket, POLLIN, 0};
    int ready = poll(&readable, socket >= 0 ? 1 : 0, PollMillis(timeout));
    if (ready < 0 && errno == EINTR) continue;
    std::lock_guard<std::mutex> lock(NetSnmpMutex());
    if (ready > 0) {
      netsnmp_large_fd_set set;
      netsnmp_large_fd_set_init(&set, socket + 1);
      NETSNMP_LARGE_FD_SET(socket, &set);
      snmp_sess_read2(handle, &set);
      netsnmp_large_fd_set_cleanup(&set);
    } else {
      snmp_sess_timeout(handle);  // retransmits, or reports the time-out
    }
  }
  *response = waiter.response;
  return waiter.status;
}

}  // namespace snmplumi
