#include "vboard/launcher/story.h"

#include "vboard/base/kernel.h"
#include "vboard/board/story_record.h"
#include "vboard/launcher/boards.h"
#include "vboard/launcher/keeper.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

namespace vboard {

namespace {

// Bytes that grow at the end and are used up from the front.
struct Bytes {
  char *data;
  std::size_t begin, end, room;
};

// One of the command's standard streams.
struct Stream {
  int ends[2];         // the pipe
  int real;            // where the launcher passes the bytes on
  bool is_closed;      // nobody reads there any more
  Bytes bytes;         // passed on, and not yet in the story
  std::uint64_t read;  // bytes of the pipe
  std::uint64_t told;  // bytes that are in the story
  const char *word;    // "out", "err"
};

struct Story {
  FILE *file;
  RunPage *page;
  std::uint32_t sequence;  // the page's
  int records;
  Bytes unread;             // records that have been read from their file
  std::int64_t read;        // bytes of it
  std::int64_t given_back;  // to the system: what has been read is not needed any more
  Stream streams[kStoryStreams];
  Bytes text;  // the beginning of a line, and who wrote it
  Stream *text_of_stream;
  Bytes line;  // the last line, which may come again
  long repeats;
};

Story story;

// Room for `size` bytes more at the end; the run ends without memory.
char *reserve(Bytes &bytes, std::size_t size) {
  if (bytes.begin > 0) {
    memmove(bytes.data, bytes.data + bytes.begin, bytes.end - bytes.begin);
    bytes.end -= bytes.begin;
    bytes.begin = 0;
  }
  if (bytes.room - bytes.end < size) {
    bytes.room = std::max(2 * bytes.room, bytes.end + size);
    bytes.data = static_cast<char *>(realloc(bytes.data, bytes.room));
    if (bytes.data == nullptr)
      abort();
  }
  return bytes.data + bytes.end;
}

std::string_view text_of(const Bytes &bytes) {
  return {bytes.data + bytes.begin, bytes.end - bytes.begin};
}

void write_line() {
  const std::string_view line = text_of(story.line);
  if (story.repeats == 0)
    return;
  fwrite(line.data(), 1, line.size(), story.file);
  if (story.repeats > 1)
    fprintf(story.file, " (%ld times)", story.repeats);
  fputc('\n', story.file);
}

void add_line(std::string_view line) {
  if (story.repeats > 0 && line == text_of(story.line)) {
    ++story.repeats;
    return;
  }
  write_line();
  story.line.begin = story.line.end = 0;
  memcpy(reserve(story.line, line.size() + 1), line.data(), line.size());
  story.line.end = line.size();
  story.repeats = 1;
}

// A text as the story shows it, its line end included.
void add_text(const char *word, std::string_view text) {
  static Bytes shown;
  constexpr std::size_t kMostPerByte = 4;
  shown.begin = shown.end = 0;
  char *out = reserve(shown, text.size() * kMostPerByte + 16);
  char *at = out + sprintf(out, "%s \"", word);
  for (const char one : text) {
    const unsigned char byte = static_cast<unsigned char>(one);
    switch (byte) {
      case '\n':
        at += sprintf(at, "\\n");
        break;
      case '\r':
        at += sprintf(at, "\\r");
        break;
      case '\t':
        at += sprintf(at, "\\t");
        break;
      case '"':
      case '\\':
        *at++ = '\\';
        *at++ = one;
        break;
      default:
        if (byte >= ' ' && byte < 0x7F)
          *at++ = one;
        else
          at += sprintf(at, "\\x%02x", byte);
    }
  }
  *at++ = '"';
  add_line({out, static_cast<std::size_t>(at - out)});
}

// Adds what a stream has of a line that did not end.
void end_text() {
  if (story.text.begin < story.text.end)
    add_text(story.text_of_stream->word, text_of(story.text));
  story.text.begin = story.text.end = 0;
}

// Puts a stream's text into the story up to what had been written at some moment: a line for each
// that has ended, and for the rest when something else comes.
void tell_stream(Stream &stream, std::uint64_t written) {
  const std::string_view all = text_of(stream.bytes);
  const auto size =
      static_cast<std::size_t>(std::min<std::uint64_t>(written - stream.told, all.size()));
  const std::string_view text = all.substr(0, size);
  if (text.empty())
    return;
  if (story.text_of_stream != &stream)
    end_text();
  story.text_of_stream = &stream;
  for (const char byte : text) {
    *reserve(story.text, 1) = byte;
    ++story.text.end;
    if (byte == '\n')
      end_text();
  }
  stream.bytes.begin += text.size();
  stream.told += text.size();
}

// Nobody reads the stream any more: the command learns it as it would without the pipe in between.
void lose_reader(Stream &stream, pid_t command) {
  stream.is_closed = true;
  if (command != 0)
    kill(command, SIGPIPE);
}

// Waits until the stream takes bytes. False when nobody waits for the run any more: its reader may
// never read again.
bool wait_for_room(const Stream &stream) {
  constexpr int kLookAgain = 200;  // milliseconds
  pollfd writable = {stream.real, POLLOUT, 0};
  while (poll(&writable, 1, kLookAgain) == 0) {
    if (is_launcher_gone())
      return false;
  }
  return true;
}

void pass_on(Stream &stream, std::string_view text, pid_t command) {
  while (!text.empty() && !stream.is_closed) {
    // So much fits in a pipe that has room.
    const std::size_t size = std::min<std::size_t>(text.size(), PIPE_BUF);
    if (!wait_for_room(stream)) {
      stream.is_closed = true;
      return;
    }
    const ssize_t count = write(stream.real, text.data(), size);
    if (count > 0)
      text.remove_prefix(static_cast<std::size_t>(count));
    else if (count < 0 && errno == EPIPE)
      lose_reader(stream, command);
    else if (count < 0 && errno != EINTR && errno != EAGAIN)
      break;
  }
}

// Reads what is in the pipe. The sequence is odd meanwhile, for those who count.
void read_stream(int number, pid_t command) {
  constexpr std::size_t kPiece = 65536;
  Stream &stream = story.streams[number];
  for (;;) {
    char *room = reserve(stream.bytes, kPiece);
    story.page->story_sequence.store(++story.sequence);
    const ssize_t count = read(stream.ends[0], room, kPiece);
    if (count > 0)
      stream.read += static_cast<std::uint64_t>(count);
    story.page->story_read[number].store(stream.read);
    story.page->story_sequence.store(++story.sequence);
    if (count <= 0)
      return;
    stream.bytes.end += static_cast<std::size_t>(count);
    pass_on(stream, {room, static_cast<std::size_t>(count)}, command);
  }
}

void read_records() {
  constexpr std::size_t kPiece = 65536;
  constexpr std::int64_t kGiveBack = 1 << 20;
  for (;;) {
    const ssize_t count = pread(story.records, reserve(story.unread, kPiece), kPiece, story.read);
    if (count <= 0)
      break;
    story.unread.end += static_cast<std::size_t>(count);
    story.read += count;
  }
  if (story.read - story.given_back < kGiveBack)
    return;
  fallocate(story.records, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, story.given_back,
            story.read - story.given_back);
  story.given_back = story.read;
}

// Takes the records that are complete, each after the text that was written before it.
void tell_records(pid_t command) {
  read_records();
  // Whatever a record counts is in the pipes by now.
  for (int number = 0; number < kStoryStreams; ++number)
    read_stream(number, command);
  for (;;) {
    const std::string_view text = text_of(story.unread);
    StoryRecord record;
    if (text.size() < sizeof record)
      return;
    memcpy(&record, text.data(), sizeof record);
    if (text.size() - sizeof record < record.size)
      return;
    for (int number = 0; number < kStoryStreams; ++number)
      tell_stream(story.streams[number], record.written[number]);
    if (record.size > 0) {
      end_text();
      add_line(text.substr(sizeof record, record.size));
    }
    story.unread.begin += sizeof record + record.size;
  }
}

}  // namespace

int begin_story(const char *file, RunPage &page) {
  page.story_records = -1;
  if (file == nullptr)
    return 0;
  story.file = fopen(file, "we");
  if (story.file == nullptr)
    return fail("%s: %s", file, strerror(errno));
  story.page = &page;
  story.records = sys_memfd("vboard-story", MFD_CLOEXEC);
  page.story_records = story.records;
  constexpr const char *words[kStoryStreams] = {"out", "err"};
  for (int number = 0; number < kStoryStreams; ++number) {
    Stream &stream = story.streams[number];
    stream.word = words[number];
    stream.real = number + STDOUT_FILENO;
    if (story.records < 0 || pipe2(stream.ends, O_CLOEXEC) < 0)
      return fail("no pipes for the story: %s", strerror(errno));
    fcntl(stream.ends[0], F_SETFL, O_NONBLOCK);
    page.story_streams[number] = stream.ends[1];
  }
  signal(SIGPIPE, SIG_IGN);
  return 0;
}

void enter_story() {
  if (story.file == nullptr)
    return;
  signal(SIGPIPE, SIG_DFL);
  for (const Stream &stream : story.streams)
    dup2(stream.ends[1], stream.real);
}

std::size_t story_descriptors(pollfd *fds) {
  if (story.file == nullptr)
    return 0;
  for (int number = 0; number < kStoryStreams; ++number)
    fds[number] = {story.streams[number].ends[0], POLLIN, 0};
  return kStoryStreams;
}

void continue_story(pid_t command) {
  if (story.file != nullptr)
    tell_records(command);
}

void add_to_story(std::string_view line) {
  if (story.file == nullptr)
    return;
  tell_records(0);
  end_text();
  add_line(line);
}

int end_story(const char *outcome) {
  if (story.file == nullptr)
    return 0;
  tell_records(0);
  for (Stream &stream : story.streams)
    tell_stream(stream, UINT64_MAX);
  end_text();
  if (outcome != nullptr)
    add_line(outcome);
  write_line();
  bool failed = ferror(story.file) != 0;
  failed = fclose(story.file) != 0 || failed;
  return failed ? fail("the story cannot be written: %s", strerror(errno)) : 0;
}

}  // namespace vboard
