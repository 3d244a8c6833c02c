// Wraps fgetc fgetc_unlocked getc getc_unlocked _IO_getc getchar getchar_unlocked __uflow
// __underflow fgets fgets_unlocked __fgets_chk __fgets_unlocked_chk fread fread_unlocked
// __fread_chk __fread_unlocked_chk getline getdelim __getdelim.
//
// libc's streams read without passing read(). In a jumping run a stream that has nothing left waits
// for its descriptor first, as read() does.

#include "vboard/interposer/core/kernel_waits.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <stdio.h>

// The headers may define some of them as macros.
#undef getc
#undef getchar
#undef getc_unlocked
#undef getchar_unlocked
#undef fgetc_unlocked
#undef fgets_unlocked
#undef fread_unlocked

using namespace vboard;

DECLARE_WRAPPED(int, fileno, FILE *);

namespace {

// Streams on the board's devices have no descriptor of the kernel's: their bytes come by read().
void await_bytes(FILE *stream) {
  if (!jumping() || stream->_IO_read_ptr < stream->_IO_read_end || !on_board())
    return;
  const int fd = REAL(fileno)(stream);
  if (fd >= 0)
    await_kernel(fd, POLLIN, "read");
}

}  // namespace

WRAP(int, fgetc, FILE *stream) {
  await_bytes(stream);
  return REAL(fgetc)(stream);
}
WRAP_ALIAS(getc, fgetc);
WRAP_ALIAS(_IO_getc, fgetc);

WRAP(int, fgetc_unlocked, FILE *stream) {
  await_bytes(stream);
  return REAL(fgetc_unlocked)(stream);
}

WRAP(int, getc_unlocked, FILE *stream) {
  await_bytes(stream);
  return REAL(getc_unlocked)(stream);
}

WRAP(int, getchar, void) {
  await_bytes(stdin);
  return REAL(getchar)();
}

WRAP(int, getchar_unlocked, void) {
  await_bytes(stdin);
  return REAL(getchar_unlocked)();
}

WRAP(int, __uflow, FILE *stream) {
  await_bytes(stream);
  return REAL(__uflow)(stream);
}

WRAP(int, __underflow, FILE *stream) {
  await_bytes(stream);
  return REAL(__underflow)(stream);
}

WRAP(char *, fgets, char *text, int size, FILE *stream) {
  await_bytes(stream);
  return REAL(fgets)(text, size, stream);
}

WRAP(char *, fgets_unlocked, char *text, int size, FILE *stream) {
  await_bytes(stream);
  return REAL(fgets_unlocked)(text, size, stream);
}

WRAP(char *, __fgets_chk, char *text, std::size_t room, int size, FILE *stream) {
  await_bytes(stream);
  return REAL(__fgets_chk)(text, room, size, stream);
}

WRAP(char *, __fgets_unlocked_chk, char *text, std::size_t room, int size, FILE *stream) {
  await_bytes(stream);
  return REAL(__fgets_unlocked_chk)(text, room, size, stream);
}

WRAP(std::size_t, fread, void *bytes, std::size_t size, std::size_t count, FILE *stream) {
  await_bytes(stream);
  return REAL(fread)(bytes, size, count, stream);
}

WRAP(std::size_t, fread_unlocked, void *bytes, std::size_t size, std::size_t count, FILE *stream) {
  await_bytes(stream);
  return REAL(fread_unlocked)(bytes, size, count, stream);
}

WRAP(std::size_t, __fread_chk, void *bytes, std::size_t room, std::size_t size, std::size_t count,
     FILE *stream) {
  await_bytes(stream);
  return REAL(__fread_chk)(bytes, room, size, count, stream);
}

WRAP(std::size_t, __fread_unlocked_chk, void *bytes, std::size_t room, std::size_t size,
     std::size_t count, FILE *stream) {
  await_bytes(stream);
  return REAL(__fread_unlocked_chk)(bytes, room, size, count, stream);
}

WRAP(ssize_t, getdelim, char **line, std::size_t *room, int end, FILE *stream) {
  await_bytes(stream);
  return REAL(getdelim)(line, room, end, stream);
}
WRAP_ALIAS(__getdelim, getdelim);

WRAP(ssize_t, getline, char **line, std::size_t *room, FILE *stream) {
  await_bytes(stream);
  return REAL(getline)(line, room, stream);
}
