#include "pipe_server.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "pipe_security.h"
#include "system_failure.h"

namespace ostrel::helper {

namespace {

using namespace std::chrono;

const wchar_t* const PIPE_PREFIX = L"\\\\.\\pipe\\OstrelUserHelper\\";

// Twice the longest path of Windows, 32767 units: no request has more than one beside short texts.
constexpr DWORD LONGEST_REQUEST_BYTES = 128 * 1024;
// With room to keep a reply in, writing one would tell nothing about whether anybody fetched it.
constexpr DWORD NO_REPLY_BUFFER = 0;
constexpr DWORD ONLY_INSTANCE = 1;

DWORD MillisecondsUntil(steady_clock::time_point deadline) {
  const auto left = ceil<milliseconds>(deadline - steady_clock::now());
  return static_cast<DWORD>(std::max<milliseconds::rep>(left.count(), 0));
}

}  // namespace

class PipeServer::Operation {
 public:
  explicit Operation(UniqueFileHandle& pipe) : pipe_(pipe), event_(NewEvent()) {
    overlapped_.hEvent = event_.Get();
  }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  OVERLAPPED* Overlapped() noexcept { return &overlapped_; }
  DWORD Transferred() const noexcept { return transferred_; }

  // Waits for what was `started` with this object, and cancels it at the deadline, so that nothing is written
  // into buffers after their time. Returns the error, 0 for none, WAIT_TIMEOUT for the deadline.
  DWORD Finish(BOOL started, Deadline deadline) {
    if (!started && GetLastError() != ERROR_IO_PENDING) return GetLastError();
    const DWORD waited = WaitForSingleObject(event_.Get(), MillisecondsUntil(deadline));
    // What cannot be cancelled ends with the pipe; nobody else might ever end it.
    if (waited != WAIT_OBJECT_0 && !CancelIoEx(pipe_.Get(), &overlapped_) &&
        GetLastError() != ERROR_NOT_FOUND) {
      pipe_.Close();
    }
    if (GetOverlappedResult(pipe_.Get(), &overlapped_, &transferred_, TRUE)) return ERROR_SUCCESS;
    return waited == WAIT_TIMEOUT ? WAIT_TIMEOUT : GetLastError();
  }

 private:
  UniqueFileHandle& pipe_;
  UniqueKernelHandle event_;
  OVERLAPPED overlapped_{};
  DWORD transferred_ = 0;
};

PipeServer::PipeServer(const std::wstring& channelName) {
  PipeSecurity security;
  // Somebody else's pipe of this name must not be joined: whoever made it would see the request.
  pipe_.Reset(
      CreateNamedPipeW((PIPE_PREFIX + channelName).c_str(),
                       PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
                       PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
                       ONLY_INSTANCE, NO_REPLY_BUFFER, LONGEST_REQUEST_BYTES, 0, security.Attributes()));
  if (!pipe_) throw SystemFailure(ExitCode::PipeNotCreated, "the pipe cannot be created", GetLastError());
  // Not every system heeds the flag: Wine looks only at how many instances the first one allows.
  DWORD instances = 0;
  if (!GetNamedPipeHandleStateW(pipe_.Get(), nullptr, &instances, nullptr, nullptr, nullptr, 0)) {
    throw SystemFailure(ExitCode::PipeNotCreated, "whose the pipe is cannot be found out", GetLastError());
  }
  if (instances != ONLY_INSTANCE) throw Failure(ExitCode::PipeNotCreated, "the pipe is somebody else's");
}

bool PipeServer::WaitForClient(Deadline deadline) {
  while (steady_clock::now() < deadline) {
    Operation connect(pipe_);
    const DWORD error = connect.Finish(ConnectNamedPipe(pipe_.Get(), connect.Overlapped()), deadline);
    // The client may have been quicker.
    if (error == ERROR_SUCCESS || error == ERROR_PIPE_CONNECTED) return true;
    if (error == WAIT_TIMEOUT) return false;
    // It may have left again, too.
    if (error != ERROR_NO_DATA) {
      throw SystemFailure(ExitCode::NobodyCame, "no client could be connected", error);
    }
    Disconnect();
  }
  return false;
}

std::wstring PipeServer::ReadRequest(milliseconds patience) {
  std::vector<std::byte> bytes(LONGEST_REQUEST_BYTES);
  Operation read(pipe_);
  const DWORD error =
      read.Finish(ReadFile(pipe_.Get(), bytes.data(), LONGEST_REQUEST_BYTES, nullptr, read.Overlapped()),
                  steady_clock::now() + patience);
  if (error == WAIT_TIMEOUT) throw Failure(ExitCode::NoRequest, "no request came in time");
  if (error == ERROR_MORE_DATA) throw Failure(ExitCode::NoRequest, "the request is too long");
  if (error != ERROR_SUCCESS) throw SystemFailure(ExitCode::NoRequest, "no request can be read", error);
  const std::size_t length = read.Transferred();
  if (length % sizeof(wchar_t) != 0) throw Failure(ExitCode::NoRequest, "the request is no UTF-16 text");
  std::wstring request(length / sizeof(wchar_t), L'\0');
  std::copy_n(bytes.data(), length, reinterpret_cast<std::byte*>(request.data()));
  return request;
}

void PipeServer::Deliver(const std::wstring& reply, milliseconds patience) {
  Operation write(pipe_);
  const DWORD error =
      write.Finish(WriteFile(pipe_.Get(), reply.data(), static_cast<DWORD>(reply.size() * sizeof(wchar_t)),
                             nullptr, write.Overlapped()),
                   steady_clock::now() + patience);
  if (error == WAIT_TIMEOUT) throw Failure(ExitCode::NotDelivered, "the reply was not fetched in time");
  if (error != ERROR_SUCCESS) {
    throw SystemFailure(ExitCode::NotDelivered, "the reply was not fetched", error);
  }
}

void PipeServer::Disconnect() noexcept {
  DisconnectNamedPipe(pipe_.Get());
}

void PipeServer::Break() noexcept {
  pipe_.Close();
}

}  // namespace ostrel::helper
