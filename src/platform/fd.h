// POSIX file descriptors: one that closes itself, and writing a whole buffer to one.
#ifndef NOM_PLATFORM_FD_H_
#define NOM_PLATFORM_FD_H_

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

#include "platform/winerror.h"
#include "win_types.h"

namespace nomplat {

// Writes all size bytes of data to fd, calling write() again after a partial write or an
// interruption (EINTR). Returns 0, or the Windows error (MapErrno) of the write() that failed;
// some bytes may then have been written. Writes nothing and returns 0 for size 0.
NOM_API DWORD WriteAll(int fd, const char* data, size_t size);

// A file descriptor closed when it goes out of scope; -1 holds none.
class Fd {
 public:
  // Takes ownership of fd (-1: none).
  explicit Fd(int fd) : fd_(fd) {}
  // Closes the descriptor held, ignoring any error (call Close to see it).
  ~Fd() {
    if (fd_ >= 0) close(fd_);
  }
  // Takes other's descriptor; other holds none after.
  Fd(Fd&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  // Swaps descriptors with other, which closes this one's former descriptor when it goes.
  Fd& operator=(Fd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  // The descriptor; -1 when none is held.
  int get() const { return fd_; }
  // True when a descriptor is held.
  explicit operator bool() const { return fd_ >= 0; }
  // Closes now and holds none; returns 0 or the Windows error of a failed close (a late write
  // error). Holding none, does nothing and returns 0.
  DWORD Close() {
    if (fd_ < 0) return 0;
    const int rc = close(fd_);
    fd_ = -1;
    return rc == 0 ? 0 : MapErrno(errno);
  }

 private:
  int fd_;
};

}  // namespace nomplat

#endif  // NOM_PLATFORM_FD_H_
