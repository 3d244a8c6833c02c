// What a node that is no disk answers to a disk's requests, as the texts that print errno show it:
// ENOTTY from a kernel, ENOSYS from an emulator, which does not know them.

#ifndef TESTS_UNIT_NO_DISK_REQUEST_H
#define TESTS_UNIT_NO_DISK_REQUEST_H

#include <errno.h>
#include <fcntl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <string>

inline int no_disk_errno() {
  sg_io_hdr request = {};
  request.interface_id = 'S';
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  errno = 0;
  ioctl(fd, SG_IO, &request);
  const int answer = errno;
  close(fd);
  return answer == ENOSYS ? ENOSYS : ENOTTY;
}

inline std::string no_disk_errno_text() {
  return std::to_string(no_disk_errno());
}

#endif
