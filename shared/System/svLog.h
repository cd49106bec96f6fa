// The process-wide log. One file, opened once at start-up, appended to with one unbuffered write for each
// line, closed by a hook that runs when the program ends. Not locked: the panel is single-threaded.
//
// States: unopened (descriptor 0, no prefix), open (a file's descriptor, or 1 after a failed open), closed
// (descriptor -1). While logging is off the log stays unopened and its lines go to descriptor 0, unchecked.
//
// No call that writes a line changes errno, so a failure may be logged before its errno is looked at.
#pragma once

#include <cstdarg>

namespace vexil {

// Opening modes, a bit set. With neither kLogCreate nor kLogAppend only the prefix is taken.
inline constexpr int kLogCreate = 0x0002;    // open the file new: create or truncate it
inline constexpr int kLogAppend = 0x0004;    // open the file for appending, creating it if missing
inline constexpr int kLogInTmp = 0x4000;     // put the file under /tmp
inline constexpr int kLogDisabled = 0x8000;  // logging off: OpenLog does nothing

// The name of a log that is given no other. The panel names its own.
inline constexpr const char* kDefaultLogFileName = "logfile.log";

// Opens the log, shared-locked and writable for every user, and writes its header line: the version, the
// processor that the program was built for, and the time. `prefix` (copied) starts every line; it becomes a
// part of the line's format, so it holds no "%". `versionText` goes into the header line; both may be null or
// empty. A path is cut to 258 characters. A file that cannot be opened, or that somebody keeps locked for
// more than 250 ms, sends the lines to standard output, without a header. Always returns 1.
int OpenLog(const char* prefix, const char* versionText, int mode, const char* fileName);

// Writes one line: the prefix and the formatted text, cut to 258 characters. Returns what write() returned,
// or the length of the line when the log is closed.
int LogPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The same when `enabled` is non-zero; returns 0 and does nothing otherwise.
int LogPrintfIf(unsigned char enabled, const char* format, ...) __attribute__((format(printf, 2, 3)));

// As the two above, without the prefix.
int LogPrintfRaw(const char* format, ...) __attribute__((format(printf, 1, 2)));
int LogPrintfRawIf(unsigned char enabled, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Formats without prefix and writes to the descriptor held at `descriptor`, unless that is -1. Cut and result
// as for LogPrintf.
int LogPrintfTo(const int* descriptor, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Writes the closing line and closes the file. OpenLog registers it to run when the program ends.
void CloseLog();

// True from the OpenLog that found the lines a place (the file, or standard output where it cannot be opened)
// until CloseLog. A part of the platform that has something to report before the log is there keeps the line
// until this is true.
bool LogIsOpen();

// Prints `format` (kAssertionFormat) to standard error, flushes it and aborts the process.
inline constexpr const char* kAssertionFormat = "%s:%u: failed assertion `%s'\n";
[[noreturn]] void AssertionFailed(const char* format, const char* file, unsigned line,
                                  const char* expression);

}  // namespace vexil
