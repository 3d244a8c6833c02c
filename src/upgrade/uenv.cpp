// uenv list, uenv get, uenv set: the U-Boot environment, through the platform library.
//
// get and set print "key=value" after a failure too. Names are cut to 63 characters and values to
// 255.

#include "platform/uenv.h"
#include "upgrade/upgrade.h"

#include <errno.h>
#include <stdio.h>

namespace {

constexpr char kUsage[] =
    "\n uenv v1.0\n"
    "\nUsage: uenv [func] [args]\n"
    "\n    list                   list uboot enviroment\n"  // sic
    "    get [key]              get uboot env by key\n"
    "    set [key] [value]      set uboot env value by key\n"
    "\n\nexample:\n"
    "  uenv list\n"
    "  uenv get bootargs\n"
    "  uenv set kdbg 8\n";

}  // namespace

int uenv_list_main([[maybe_unused]] int argc, [[maybe_unused]] char **argv) {
  const int total = rig_uenv_totalkey();
  if (total == 0) {
    puts("warn: env_total = 0");
    return 0;
  }

  int result = total;  // what is returned when the number itself could not be told
  for (int i = 0; i < total; ++i) {
    char key[RIG_UENV_KEY_SIZE] = "";
    char value[RIG_UENV_VALUE_SIZE] = "";
    result = rig_uenv_key(i, key, sizeof key);
    if (result != 0) {
      printf("[%02d/%02d]key[%s] get key fail\n", i, total, key);
      continue;
    }
    result = rig_uenv_get(key, value, sizeof value);
    if (result != 0)
      printf("[%02d/%02d]key[%s] get value fail\n", i, total, key);
    else
      printf("[%02d/%02d]%s=%s\n", i, total, key, value);
  }
  puts("");
  return result;
}

int uenv_get_main(int argc, char **argv) {
  if (argc != 2) {
    fputs(kUsage, stderr);
    return 0;
  }
  char key[RIG_UENV_KEY_SIZE];
  char value[RIG_UENV_VALUE_SIZE] = "";
  snprintf(key, sizeof key, "%s", argv[1]);

  const int result = rig_uenv_get(key, value, sizeof value);
  if (result != 0) {
    if (errno == ENOENT)
      printf("uboot env hasn't key[%s]!\n", key);
    else
      printf("ioctl UBOOTENV_GET fail![%d]\n", errno);
    value[0] = '\0';
  }
  printf("%s=%s\n", key, value);
  return result;
}

int uenv_set_main(int argc, char **argv) {
  if (argc != 2 && argc != 3) {
    fputs(kUsage, stderr);
    return 0;
  }
  char key[RIG_UENV_KEY_SIZE];
  char value[RIG_UENV_VALUE_SIZE] = "";
  snprintf(key, sizeof key, "%s", argv[1]);
  if (argc == 3)
    snprintf(value, sizeof value, "%s", argv[2]);

  const int result = rig_uenv_set(key, value);
  if (result != 0) {
    if (errno == EPERM || errno == ENOENT)
      printf("uboot env hasn't key[%s]!\n", key);
    else
      printf("ioctl UBOOTENV_SET fail![%d]\n", errno);
  }
  printf("%s=%s\n", key, value);
  return result;
}
