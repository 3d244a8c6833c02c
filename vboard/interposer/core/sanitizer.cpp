// Only in a build with the address sanitizer: which programs are searched for leaks.
//
// The interposer brings the sanitizer's run time into every program of a run. A shell or Python,
// built without it, may end with memory that it never freed, and would fail for that. Programs that
// were built with the sanitizer are searched as without the interposer.

#include <link.h>
#include <string.h>

namespace {

// Whether the program itself asks for the run time's library.
bool program_is_instrumented() {
  const ElfW(Dyn) *const entries = _r_debug.r_map->l_ld;
  const char *names = nullptr;
  for (const ElfW(Dyn) *entry = entries; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_STRTAB)
      names = reinterpret_cast<const char *>(entry->d_un.d_ptr);
  }
  for (const ElfW(Dyn) *entry = entries; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_NEEDED && names != nullptr &&
        strncmp(names + entry->d_un.d_val, "libasan.so", strlen("libasan.so")) == 0)
      return true;
  }
  return false;
}

}  // namespace

// The run time asks this before it searches.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() {
  return !program_is_instrumented();
}
