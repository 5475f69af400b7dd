#include "snmp/exchange.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

namespace snmplumi {
namespace {

// Runs inside net-snmp, on whichever thread read the answer or ran the time-out: ours, or a
// host thread inside net-snmp's traditional calls on the same session.
int OnAnswer(int operation, netsnmp_session *, int reqid, netsnmp_pdu *pdu, void *magic) {
  Answer &answer = static_cast<Session *>(magic)->answer;
  std::lock_guard<std::mutex> lock(answer.mutex);
  // A resend keeps the request waiting; an answer to another request is not ours.
  if (operation == NETSNMP_CALLBACK_OP_RESEND || answer.done || reqid != answer.reqid) {
    return 1;
  }
  answer.done = true;
  if (operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE && pdu != nullptr &&
      pdu->command == SNMP_MSG_RESPONSE) {
    answer.response = snmp_clone_pdu(pdu);
    answer.status = answer.response != nullptr ? STAT_SUCCESS : STAT_ERROR;
  } else {
    answer.status = operation == NETSNMP_CALLBACK_OP_TIMED_OUT ? STAT_TIMEOUT : STAT_ERROR;
  }
  return 1;
}

int PollMillis(const timeval &timeout, std::chrono::milliseconds max_wait) {
  long long millis = timeout.tv_sec * 1000LL + (timeout.tv_usec + 999) / 1000;
  return static_cast<int>(std::clamp<long long>(millis, 0, max_wait.count()));
}

}  // namespace

bool ServiceSession(void *single_session, std::chrono::milliseconds max_wait) {
  timeval timeout{};
  int block = 1;
  int socket = -1;
  {
    std::lock_guard<std::mutex> lock(NetSnmpMutex());
    int fds = 0;
    netsnmp_large_fd_set unused;
    netsnmp_large_fd_set_init(&unused, FD_SETSIZE);
    snmp_sess_select_info2_flags(single_session, &fds, &unused, &timeout, &block,
                                 NETSNMP_SELECT_NOALARMS);
    netsnmp_large_fd_set_cleanup(&unused);
    netsnmp_transport *transport = snmp_sess_transport(single_session);
    socket = transport != nullptr ? transport->sock : -1;
  }
  const bool outstanding = block == 0;
  const int wait = outstanding ? PollMillis(timeout, max_wait) : static_cast<int>(max_wait.count());
  pollfd readable{socket, POLLIN, 0};
  int ready = poll(&readable, socket >= 0 ? 1 : 0, wait);
  if (ready < 0 && errno == EINTR) return outstanding;
  std::lock_guard<std::mutex> lock(NetSnmpMutex());
  if (ready > 0) {
    netsnmp_large_fd_set set;
    netsnmp_large_fd_set_init(&set, socket + 1);
    NETSNMP_LARGE_FD_SET(socket, &set);
    snmp_sess_read2(single_session, &set);
    netsnmp_large_fd_set_cleanup(&set);
  } else if (outstanding) {
    snmp_sess_timeout(single_session);  // retransmits, or reports the time-out
  }
  int fds = 0;
  block = 1;
  netsnmp_large_fd_set unused;
  netsnmp_large_fd_set_init(&unused, FD_SETSIZE);
  snmp_sess_select_info2_flags(single_session, &fds, &unused, &timeout, &block,
                               NETSNMP_SELECT_NOALARMS);
  netsnmp_large_fd_set_cleanup(&unused);
  return block == 0;
}

int Exchange(Session &session, netsnmp_pdu *pdu, netsnmp_pdu **response) {
  *response = nullptr;
  std::lock_guard<std::mutex> one_request(session.in_use);
  void *handle = session.handle;
  {
    std::lock_guard<std::mutex> lock(NetSnmpMutex());
    if (handle == nullptr) {
      snmp_free_pdu(pdu);
      return STAT_ERROR;
    }
    session.answer.Expect(static_cast<int>(pdu->reqid));
    if (snmp_sess_async_send(handle, pdu, OnAnswer, &session) == 0) {
      snmp_free_pdu(pdu);
      return STAT_ERROR;
    }
  }
  // The wait ends only once net-snmp holds no request of this session: no late answer can
  // reach a request that its caller has given up.
  constexpr std::chrono::milliseconds kLongestWait{60000};
  while (ServiceSession(handle, kLongestWait)) {
  }
  std::lock_guard<std::mutex> answer_lock(session.answer.mutex);
  *response = session.answer.response;
  session.answer.response = nullptr;
  return session.answer.done ? session.answer.status : STAT_ERROR;
}

}  // namespace snmplumi
