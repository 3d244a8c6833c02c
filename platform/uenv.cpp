// The U-Boot environment through libubootenv, which is loaded when it is first asked for: a tool
// that never looks at the environment does not pay for it.
//
// The medium is read anew for each question and nothing stays locked between two, so that what
// another program stores is seen. A listing is the exception: it is one reading of the medium,
// taken by rig_uenv_totalkey(), which rig_uenv_key() answers from, and rig_uenv_get() too when it
// is asked for the variable that was named last. Hundreds of variables are then listed in one
// reading.

#include "platform/uenv.h"

#include <dlfcn.h>
#include <errno.h>
#include <libuboot.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cstddef>

namespace {

constexpr char kConfiguration[] = "/etc/fw_env.config";

// libubootenv.

struct UbootLibrary {
  decltype(&libuboot_initialize) initialize;
  decltype(&libuboot_read_config) read_config;
  decltype(&libuboot_open) open;
  decltype(&libuboot_close) close;
  decltype(&libuboot_exit) exit;
  decltype(&libuboot_get_env) get_env;
  decltype(&libuboot_set_env) set_env;
  decltype(&libuboot_env_store) env_store;
  decltype(&libuboot_iterator) iterator;
  decltype(&libuboot_getname) getname;
  decltype(&libuboot_getvalue) getvalue;
};

UbootLibrary library;

template <typename Function>
bool bind(void *handle, const char *name, Function *function) {
  *function = reinterpret_cast<Function>(dlsym(handle, name));
  return *function != nullptr;
}

// ELIBACC when libubootenv is not installed.
int load_library() {
  static bool is_loaded = false;
  if (is_loaded)
    return 0;
  void *handle = dlopen("libubootenv.so.0", RTLD_NOW | RTLD_LOCAL);
  if (handle != nullptr && bind(handle, "libuboot_initialize", &library.initialize) &&
      bind(handle, "libuboot_read_config", &library.read_config) &&
      bind(handle, "libuboot_open", &library.open) &&
      bind(handle, "libuboot_close", &library.close) &&
      bind(handle, "libuboot_exit", &library.exit) &&
      bind(handle, "libuboot_get_env", &library.get_env) &&
      bind(handle, "libuboot_set_env", &library.set_env) &&
      bind(handle, "libuboot_env_store", &library.env_store) &&
      bind(handle, "libuboot_iterator", &library.iterator) &&
      bind(handle, "libuboot_getname", &library.getname) &&
      bind(handle, "libuboot_getvalue", &library.getvalue)) {
    is_loaded = true;
    return 0;
  }
  errno = ELIBACC;
  return -1;
}

// libubootenv's results are coarse, but the errno of the call that failed is still there: it counts
// when it says more than `otherwise`. ENOENT and EPERM never pass, since to the callers they speak
// of the variable and not of the medium.
int reason_of_failure(int otherwise) {
  switch (errno) {
    case EACCES:
    case EBUSY:
    case ENOMEM:
    case EROFS:
    case ENOSPC:
      return errno;
    case EPERM:
      return EACCES;
    default:
      return otherwise;
  }
}

void close_environment(uboot_ctx *context) {
  const int reason = errno;
  library.close(context);
  library.exit(context);
  errno = reason;
}

// Reads the environment. Other programs wait for libubootenv's lock until close_environment().
int open_environment(uboot_ctx **context) {
  if (load_library() != 0)
    return -1;
  if (library.initialize(context, nullptr) != 0) {
    errno = ENOMEM;
    return -1;
  }
  errno = 0;
  if (library.read_config(*context, kConfiguration) != 0) {
    // No configuration, or none whose device exists.
    errno = reason_of_failure(ENODEV);
    library.exit(*context);
    return -1;
  }
  errno = 0;
  const int result = library.open(*context);
  if (result != 0) {
    // A wrong checksum is -ENODATA. To begin a new environment then would drop U-Boot's own
    // defaults.
    errno = result == -ENODATA ? EIO : reason_of_failure(EIO);
    close_environment(*context);
    return -1;
  }
  return 0;
}

// The listing.

struct Variable {
  const char *name;
  const char *value;
};

struct Listing {
  Variable *variables;  // one allocation: the rows, behind them their texts
  int count;
  int named;                 // the row that rig_uenv_key() named last, -1 for none
  std::size_t named_length;  // of the name as it was handed out
};

Listing listing = {nullptr, 0, -1, 0};

void drop_listing() {
  free(listing.variables);
  listing = {nullptr, 0, -1, 0};
}

// False with errno for failure.
bool take_listing() {
  drop_listing();
  uboot_ctx *context;
  if (open_environment(&context) != 0)
    return false;
  std::size_t count = 0;
  std::size_t size = 0;
  for (void *row = nullptr; (row = library.iterator(context, row)) != nullptr; ++count)
    size += strlen(library.getname(row)) + 1 + strlen(library.getvalue(row)) + 1;
  // The room of one row more, so that an empty environment is a listing too.
  listing.variables = static_cast<Variable *>(malloc((count + 1) * sizeof(Variable) + size));
  if (listing.variables == nullptr) {
    close_environment(context);
    return false;
  }
  char *text = reinterpret_cast<char *>(listing.variables + count + 1);
  for (void *row = nullptr; (row = library.iterator(context, row)) != nullptr; ++listing.count) {
    Variable &variable = listing.variables[listing.count];
    variable.name = text;
    text = stpcpy(text, library.getname(row)) + 1;
    variable.value = text;
    text = stpcpy(text, library.getvalue(row)) + 1;
  }
  close_environment(context);
  return true;
}

// The value in the listing when `key` is what rig_uenv_key() handed out last, else null. Answers
// once: the next question for the same variable is about the medium again.
const char *take_named_value(const char *key) {
  const int named = listing.named;
  listing.named = -1;
  if (named < 0 || strlen(key) != listing.named_length ||
      strncmp(key, listing.variables[named].name, listing.named_length) != 0)
    return nullptr;
  return listing.variables[named].value;
}

// Operations.

// Stores `text`, cut to `size` - 1 characters and terminated, and returns the length.
std::size_t store_cut(const char *text, char *buffer, int size) {
  const std::size_t length = strnlen(text, static_cast<std::size_t>(size) - 1);
  memcpy(buffer, text, length);
  buffer[length] = '\0';
  return length;
}

// A copy of the value on the medium, to be freed; null with errno.
char *read_value(const char *key) {
  uboot_ctx *context;
  if (open_environment(&context) != 0)
    return nullptr;
  errno = 0;
  char *value = library.get_env(context, key);
  if (value == nullptr)
    errno = errno == ENOMEM ? ENOMEM : ENOENT;
  close_environment(context);
  return value;
}

int refuse(int number) {
  errno = number;
  return -1;
}

}  // namespace

int rig_uenv_totalkey(void) {
  return take_listing() ? listing.count : -1;
}

int rig_uenv_key(int index, char *key, int size) {
  if (key == nullptr || size <= 0)
    return refuse(EINVAL);
  if (listing.variables == nullptr && !take_listing())
    return -1;
  if (index < 0 || index >= listing.count)
    return refuse(EINVAL);
  listing.named = index;
  listing.named_length = store_cut(listing.variables[index].name, key, size);
  return 0;
}

int rig_uenv_get(const char *key, char *value, int size) {
  if (key == nullptr || value == nullptr || size <= 0)
    return refuse(EINVAL);
  const char *listed = take_named_value(key);
  if (listed != nullptr) {
    store_cut(listed, value, size);
    return 0;
  }
  char *read = read_value(key);
  if (read == nullptr)
    return -1;
  store_cut(read, value, size);
  free(read);
  return 0;
}

namespace {

// Changes the variable in an open environment and writes the environment to its medium.
int store_value(uboot_ctx *context, const char *key, const char *value) {
  // An empty value is stored as "key=". Only a null one would delete the variable.
  const int refused = library.set_env(context, key, value);
  if (refused != 0)
    return refuse(-refused);  // EPERM for a variable that is read-only, ENOMEM
  errno = 0;
  const int result = library.env_store(context);
  if (result == -ENOMEM && errno != ENOMEM)
    return refuse(ENOSPC);  // the environment is full
  return result == 0 ? 0 : refuse(reason_of_failure(EIO));
}

}  // namespace

int rig_uenv_set(const char *key, const char *value) {
  if (key == nullptr || value == nullptr || key[0] == '\0' || strchr(key, '=') != nullptr)
    return refuse(EINVAL);
  drop_listing();
  uboot_ctx *context;
  if (open_environment(&context) != 0)
    return -1;
  const int result = store_value(context, key, value);
  close_environment(context);
  if (result != 0)
    return -1;
  // Read back: on flash of a kind that libubootenv cannot erase it writes nothing and says success.
  char *stored = read_value(key);
  if (stored == nullptr || strcmp(stored, value) != 0) {
    free(stored);
    return refuse(EIO);
  }
  free(stored);
  return 0;
}

int rigabi_get_value(const char *, const char *key, void *buffer, int size) {
  if (key == nullptr || buffer == nullptr || size <= 0)
    return refuse(EINVAL);
  char *value = read_value(key);
  if (value == nullptr)
    return -1;
  memcpy(buffer, value, std::min(strlen(value) + 1, static_cast<std::size_t>(size)));
  free(value);
  return 0;
}
