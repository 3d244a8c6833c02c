// The terminal of a run with --tty: a pseudo-terminal whose slave is the command's, and whose
// master is the keeper's.
//
// What the command prints on it goes to the launcher's standard output. What comes from the
// launcher's standard input is typed into it, and so are the texts of --type at their time.

#ifndef VBOARD_LAUNCHER_TERMINAL_H
#define VBOARD_LAUNCHER_TERMINAL_H
#include "vboard/board/run_page.h"
#include "vboard/launcher/run_options.h"

#include <poll.h>
#include <sys/types.h>

#include <cstddef>

namespace vboard {

inline constexpr std::size_t kTerminalDescriptors = 2;

// In the launcher, before the keeper is made: a terminal on standard input passes every key on, ^C
// as well. end_keyboard() makes it what it was. Both do nothing without --tty.
void begin_keyboard(const RunOptions &options);
void end_keyboard();

// In the keeper: makes the terminal, and lets the page's processes know it. Without --tty there is
// none, and the functions below do nothing. `options` must live as long as the run. 0, or a status
// with the reason on standard error.
int begin_terminal(const RunOptions &options, RunPage &page);

// In the child that becomes the command: it leads a session with this terminal, on which its
// standard streams are.
void enter_terminal();

// The descriptors to wait for; `fds` has room for kTerminalDescriptors. The number of them.
std::size_t terminal_descriptors(pollfd *fds);

// Passes on what was printed and what was typed. `command` gets SIGHUP when nobody reads what it
// prints any more.
void continue_terminal(pid_t command);

// Whether something may still come from standard input.
bool may_be_typed_on();

// Types the texts that are due. They have arrived when it returns: a program that asks for input
// finds them, and the signal of a ^C is sent.
void type_due_texts(RunPage &page, pid_t command);

}  // namespace vboard

#endif
