// Wraps fprintf vfprintf __fprintf_chk __vfprintf_chk fputs fputs_unlocked fputc fputc_unlocked
// putc putc_unlocked _IO_putc fwrite fwrite_unlocked perror psignal.
//
// libc's streams write without passing write(). A story needs to know where the text on standard
// error belongs among that on standard output, so each call that writes there is noted before and
// after. What goes to other streams is in place by itself.

#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/story.h"
#include "vboard/interposer/core/wrap.h"

#include <signal.h>
#include <stdarg.h>
#include <stdio.h>

// The headers may define some of them as macros.
#undef putc
#undef putc_unlocked
#undef fputc_unlocked
#undef fputs_unlocked
#undef fwrite_unlocked

using namespace vboard;

DECLARE_WRAPPED(int, vfprintf, FILE *, const char *, va_list);
DECLARE_WRAPPED(int, __vfprintf_chk, FILE *, int, const char *, va_list);

namespace {

// Performs `print`, which writes to `stream`.
template <typename Print>
auto in_place(FILE *stream, Print print) {
  const bool noted = stream == stderr && on_board() && telling();
  if (noted)
    tell_streams();
  auto result = print();
  if (noted)
    tell_streams();
  return result;
}

}  // namespace

WRAP(int, vfprintf, FILE *stream, const char *format, va_list arguments) {
  return in_place(stream, [&] { return REAL(vfprintf)(stream, format, arguments); });
}

WRAP(int, fprintf, FILE *stream, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = vboard_vfprintf(stream, format, arguments);
  va_end(arguments);
  return result;
}

WRAP(int, __vfprintf_chk, FILE *stream, int flag, const char *format, va_list arguments) {
  return in_place(stream, [&] { return REAL(__vfprintf_chk)(stream, flag, format, arguments); });
}

WRAP(int, __fprintf_chk, FILE *stream, int flag, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = vboard___vfprintf_chk(stream, flag, format, arguments);
  va_end(arguments);
  return result;
}

WRAP(int, fputs, const char *text, FILE *stream) {
  return in_place(stream, [&] { return REAL(fputs)(text, stream); });
}

WRAP(int, fputs_unlocked, const char *text, FILE *stream) {
  return in_place(stream, [&] { return REAL(fputs_unlocked)(text, stream); });
}

WRAP(int, fputc, int byte, FILE *stream) {
  return in_place(stream, [&] { return REAL(fputc)(byte, stream); });
}
WRAP_ALIAS(putc, fputc);
WRAP_ALIAS(_IO_putc, fputc);

WRAP(int, fputc_unlocked, int byte, FILE *stream) {
  return in_place(stream, [&] { return REAL(fputc_unlocked)(byte, stream); });
}

WRAP(int, putc_unlocked, int byte, FILE *stream) {
  return in_place(stream, [&] { return REAL(fputc_unlocked)(byte, stream); });
}

// What the macros of <stdio.h> call when there is no room left in the stream.
WRAP(int, __overflow, FILE *stream, int byte) {
  return in_place(stream, [&] { return REAL(__overflow)(stream, byte); });
}

WRAP(std::size_t, fwrite, const void *items, std::size_t size, std::size_t count, FILE *stream) {
  return in_place(stream, [&] { return REAL(fwrite)(items, size, count, stream); });
}

WRAP(std::size_t, fwrite_unlocked, const void *items, std::size_t size, std::size_t count,
     FILE *stream) {
  return in_place(stream, [&] { return REAL(fwrite_unlocked)(items, size, count, stream); });
}

WRAP(void, perror, const char *text) {
  in_place(stderr, [&] { return REAL(perror)(text), 0; });
}

WRAP(void, psignal, int number, const char *text) {
  in_place(stderr, [&] { return REAL(psignal)(number, text), 0; });
}
