// Writing a whole buffer to a file descriptor.
#include "platform/fd.h"

namespace nomplat {

DWORD WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return MapErrno(errno);
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return 0;
}

}  // namespace nomplat
