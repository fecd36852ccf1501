#ifndef OSTREL_HOST_DEADLINE_H
#define OSTREL_HOST_DEADLINE_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace ostrel::host {

// Does the work on a thread of its own and waits for it. False when it was not done in time: then it goes on
// by itself, so what it touches must not be the caller's own. Passes on what it throws.
bool IsDoneWithin(std::chrono::milliseconds patience, std::function<void()> work);

// The answer to a question that may hang, or none.
template <typename Ask>
auto AnswerWithin(std::chrono::milliseconds patience, Ask ask) -> std::optional<decltype(ask())> {
  const auto answer = std::make_shared<std::optional<decltype(ask())>>();
  // A late one is still being written when nobody wants it any more.
  if (!IsDoneWithin(patience, [answer, ask] { answer->emplace(ask()); })) return std::nullopt;
  return std::move(*answer);
}

}  // namespace ostrel::host

#endif
