#include "test_cards.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace upssim::testing {

std::unique_ptr<Simulator> StartCards(int count) {
  std::vector<CardOptions> cards;
  for (int i = 0; i < count; ++i) {
    CardOptions card;
    card.name = "ups" + std::to_string(i);
    cards.push_back(card);
  }
  return Simulator::Start(cards);
}

Target CardTarget(const Simulator &simulator, const std::string &card) {
  return Target{simulator.Address(card), simulator.Port()};
}

Variable Read(const Target &target, const std::string &oid) {
  Answer answer = Get(target, {oid});
  if (!answer.answered) throw std::runtime_error("no answer to GET " + oid);
  if (answer.error_status != 0) {
    throw std::runtime_error("GET " + oid + " answered error " +
                             std::to_string(answer.error_status));
  }
  return answer.Only();
}

}  // namespace upssim::testing
