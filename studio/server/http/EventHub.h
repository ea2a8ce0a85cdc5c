// What happens, for all pages that listen.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include <nlohmann/json.hpp>

namespace project_lumen::studio {

// Hands events to listeners, each of which has a bounded line of its own: one that does not keep up
// is let go of, and its page connects again and gets the whole state. Safe for any thread.
class EventHub {
 public:
  class Listener {
   public:
    // The next event in the format of server-sent events, a comment when nothing has happened for
    // `patience`; empty when there will be no more.
    std::string Next(std::chrono::milliseconds patience);

   private:
    friend class EventHub;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> waiting_;
    bool isOver_ = false;
  };

  explicit EventHub(std::size_t mostListeners) : mostListeners_(mostListeners) {}

  // A listener whose first event is made by `first`, before any that comes later. Null when there
  // are too many already or the hub is closed.
  std::shared_ptr<Listener> Listen(const std::function<std::string()>& first);
  void Leave(const std::shared_ptr<Listener>& listener);

  void Publish(const std::string& name, const nlohmann::json& data);

  // Ends all listeners.
  void Close();

  static std::string FormatEvent(const std::string& name, const nlohmann::json& data);

 private:
  static void Append(Listener& listener, const std::string& event);
  static void End(Listener& listener);

  std::size_t mostListeners_;
  std::mutex mutex_;
  std::list<std::shared_ptr<Listener>> listeners_;
  bool isClosed_ = false;
};

}  // namespace project_lumen::studio
