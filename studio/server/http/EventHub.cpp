#include "studio/http/EventHub.h"

#include "studio/http/JsonText.h"

namespace project_lumen::studio {
namespace {

constexpr std::size_t kMostWaiting = 2000;

}  // namespace

std::string EventHub::Listener::Next(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, patience, [this] { return isOver_ || !waiting_.empty(); });
  if (isOver_) {
    return {};
  }
  if (waiting_.empty()) {
    return ": still here\n\n";
  }
  std::string events;
  for (const std::string& event : waiting_) {
    events += event;
  }
  waiting_.clear();
  return events;
}

std::shared_ptr<EventHub::Listener> EventHub::Listen(const std::function<std::string()>& first) {
  auto listener = std::make_shared<Listener>();
  {
    const std::lock_guard lock(mutex_);
    if (isClosed_ || listeners_.size() >= mostListeners_) {
      return nullptr;
    }
    listeners_.push_back(listener);
  }
  // What happens meanwhile waits behind it, and is in it already or is news.
  std::string event = first();
  const std::lock_guard lock(listener->mutex_);
  listener->waiting_.push_front(std::move(event));
  return listener;
}

void EventHub::Leave(const std::shared_ptr<Listener>& listener) {
  const std::lock_guard lock(mutex_);
  listeners_.remove(listener);
}

void EventHub::Publish(const std::string& name, const nlohmann::json& data) {
  const std::string event = FormatEvent(name, data);
  const std::lock_guard lock(mutex_);
  for (const std::shared_ptr<Listener>& listener : listeners_) {
    Append(*listener, event);
  }
}

void EventHub::Close() {
  const std::lock_guard lock(mutex_);
  isClosed_ = true;
  for (const std::shared_ptr<Listener>& listener : listeners_) {
    End(*listener);
  }
}

std::string EventHub::FormatEvent(const std::string& name, const nlohmann::json& data) {
  // JSON text has no line break of its own, so it is one line of data.
  return "event: " + name + "\ndata: " + ToText(data) + "\n\n";
}

void EventHub::Append(Listener& listener, const std::string& event) {
  const std::lock_guard lock(listener.mutex_);
  if (listener.waiting_.size() >= kMostWaiting) {
    listener.isOver_ = true;
    listener.waiting_.clear();
  } else if (!listener.isOver_) {
    listener.waiting_.push_back(event);
  }
  listener.changed_.notify_one();
}

void EventHub::End(Listener& listener) {
  const std::lock_guard lock(listener.mutex_);
  listener.isOver_ = true;
  listener.changed_.notify_one();
}

}  // namespace project_lumen::studio
