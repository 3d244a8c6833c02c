// The table of models, and what several of them share.

#include "vboard/interposer/models/models.h"

#include "vboard/base/kernel.h"
#include "vboard/board/board_files.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vboard {
namespace {

constexpr const Model *kModels[] = {
    &kGyroModel, &kIccardModel,   &kKorstorageModel, &kKorcmemModel,
    &kLcdModel,  &kMtdModel,      &kPhysMemModel,    &kProcConnectorModel,
    &kRtcModel,  &kSataDiskModel, &kSocketModel,     &kWatchdogModel,
};

bool lock_byte(int fd, std::int64_t offset) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(offset);
  lock.l_len = 1;
#ifdef SYS_fcntl64
  constexpr long kCall = SYS_fcntl64;
#else
  constexpr long kCall = SYS_fcntl;
#endif
  // fcntl() is the interposer's, and errno the program's.
  const int kept = errno;
  const long result = syscall(kCall, fd, F_OFD_SETLK, &lock);
  errno = kept;
  return result == 0;
}

}  // namespace

const Model *find_model(const char *name) {
  for (const Model *model : kModels) {
    if (strcmp(model->name, name) == 0)
      return model;
  }
  return nullptr;
}

int read_medium(const OpenFile &file, void *out, std::size_t size, std::int64_t offset) {
  const ssize_t got = sys_pread(file.fd, out, size, offset);
  if (got < 0)
    return static_cast<int>(got);
  return static_cast<std::size_t>(got) == size ? 0 : -EIO;
}

int write_medium(const OpenFile &file, const void *bytes, std::size_t size, std::int64_t offset) {
  const ssize_t put = sys_pwrite(file.fd, bytes, size, offset);
  if (put < 0)
    return static_cast<int>(put);
  return static_cast<std::size_t>(put) == size ? 0 : -EIO;
}

// A lock of the open file description on a byte far behind the text: it goes with the process
// however that ends, and does not meet the flock() that guards the settings.
int claim_device(const OpenFile &file, int &out_claim) {
  const int fd = board_open(file.file, O_RDWR | O_CLOEXEC);
  if (fd < 0)
    return fd;
  if (!lock_byte(fd, 1 << 30)) {
    sys_close(fd);
    return -EBUSY;
  }
  // The low numbers are the program's: it sees the one that a board would give it.
  out_claim = sys_move_high(fd, 600);
  return 0;
}

void release_claim(int claim) {
  sys_close(claim);
}

}  // namespace vboard
