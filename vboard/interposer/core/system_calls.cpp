// The interposer's own calls of syscall(), and those of the code that it shares with the launcher.
// The linker leads them here (--wrap=syscall), since the public name is the program's: a wait of
// the interposer's own must stay the kernel's.

#include "vboard/interposer/core/wrap.h"

DECLARE_WRAPPED(long, syscall, long, long, long, long, long, long, long);

extern "C" __attribute__((visibility("hidden"))) long __wrap_syscall(long number, long first,
                                                                     long second, long third,
                                                                     long fourth, long fifth,
                                                                     long sixth);

extern "C" long __wrap_syscall(long number, long first, long second, long third, long fourth,
                               long fifth, long sixth) {
  return REAL(syscall)(number, first, second, third, fourth, fifth, sixth);
}
