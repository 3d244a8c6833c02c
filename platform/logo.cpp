// The banner: a bench with a plug.

#include "platform/logo.h"

#include <stdio.h>
#include <string.h>

#include <cstddef>

int rig_print_logo(int indent, int end_line) {
  static constexpr char kLogo[] =
      " ___________________\n"
      "|  b e n c h r i g  |==o\n"
      "|___________________|\n"
      "   ||           ||";
  static constexpr std::size_t kLines = 4;
  static constexpr std::size_t kMostIndent = 40;

  // One write for the whole banner, also to a terminal.
  char text[sizeof kLogo + kLines * kMostIndent + 1];
  std::size_t length = 0;
  const auto wanted = static_cast<std::size_t>(indent);  // huge for a negative one
  const std::size_t blanks = wanted <= kMostIndent ? wanted : 0;
  for (const char *c = kLogo; *c != '\0'; ++c) {
    if (c == kLogo || c[-1] == '\n') {
      memset(text + length, ' ', blanks);
      length += blanks;
    }
    text[length++] = *c;
  }
  if (end_line != 0)
    text[length++] = '\n';
  fwrite(text, 1, length, stdout);
  return 0;
}
