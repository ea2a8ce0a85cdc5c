#include "backend/Turns.h"

#include <gtest/gtest.h>

#include <stop_token>
#include <thread>
#include <vector>

namespace project_lumen::backend {
namespace {

TEST(Turns, TheFirstOneHasItAtOnce) {
  Turns turns;
  EXPECT_TRUE(Turns::Turn(turns, {}).IsTaken());
  EXPECT_TRUE(Turns::Turn(turns, {}).IsTaken());
}

TEST(Turns, WhoIsToldToStopComesBackWithoutIt) {
  Turns turns;
  const Turns::Turn first(turns, {});
  std::stop_source stop;
  stop.request_stop();
  EXPECT_FALSE(Turns::Turn(turns, stop.get_token()).IsTaken());
}

TEST(Turns, WhoLeavesTheQueueLetsTheOthersPass) {
  Turns turns;
  std::stop_source stop;
  std::vector<int> order;
  {
    std::jthread leaving;
    std::jthread staying;
    const Turns::Turn first(turns, {});
    leaving = std::jthread([&] { EXPECT_FALSE(Turns::Turn(turns, stop.get_token()).IsTaken()); });
    staying = std::jthread([&] {
      const Turns::Turn turn(turns, {});
      order.push_back(2);
    });
    order.push_back(1);
    stop.request_stop();
    leaving.join();
  }
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

}  // namespace
}  // namespace project_lumen::backend
