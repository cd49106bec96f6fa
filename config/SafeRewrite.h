// Rewrites a file in place without ever risking its text. Rewriting in place keeps a file's owner,
// permissions and links, but empties it first; so the whole new text is laid beside the file and synchronised
// before that, and removed only when the file has been rewritten and synchronised itself. However the rewrite
// ends (killed, power lost, disk full), the old or the new text is whole on the disk, and the next save or
// opening of the file completes it.
//
// Order of a save: copy written, copy synchronised, folder synchronised, file emptied, file written, file
// synchronised, copy removed, folder synchronised. The copy is named by RewriteCopyName, lies beside the file
// that links lead to, and can be read by its owner alone.
//
// A copy found beside a file is applied only when the file holds the text that the copy was to replace, or a
// part of the copy's own text. When the file was edited since, it is left alone and the copy is set aside
// under a visible name ("NAME.unsaved-1"). A copy of another person, a link, or anything else that is not a
// copy is never followed, applied or removed; while it is in the way the file is rewritten without one.
//
// Two programs that save one file at once do so one after the other: whoever works on a copy holds a lock on
// it (flock), which ends with the program. Waiting for it ends after kRewriteWait. Where files cannot be
// locked, they are not. A file is read without a lock: HasCopy tells a reader that it was overtaken.
//
// Failures are log lines and results.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>

#include "shared/System/Descriptor.h"

namespace vexil {

// Larger files are refused: configurations are some ten kilobytes, and a file of short lines takes 30 to 50
// times its size in memory.
inline constexpr std::size_t kMaxRewriteBytes = std::size_t{2} * 1024 * 1024;

// How long a save waits for another one of the same file.
inline constexpr std::chrono::milliseconds kRewriteWait{2000};

// The system calls that decide about the safety of a save, so that a test can leave one out, let it fail or
// let another program in between. Results and errno as the calls give them.
struct RewriteCalls {
    int (*syncData)(int descriptor);
    int (*syncFolder)(int descriptor);
    int (*remove)(int folder, const char* name, int flags);
    std::FILE* (*reopen)(const char* path, const char* mode, std::FILE* stream);
    std::size_t (*writeText)(const void* text, std::size_t size, std::size_t count, std::FILE* stream);
    std::size_t (*readText)(void* text, std::size_t size, std::size_t count, std::FILE* stream);
};
extern const RewriteCalls kSystemRewriteCalls;

enum class PendingSave {
    None,      // no save is pending, or no longer: the file is whole
    InTheWay,  // the copy's name is taken by something that is left alone
    Blocked    // a save is pending and cannot be completed now; the reason has been logged
};

class SafeRewrite {
  public:
    // `rewriteCalls` must outlive this object.
    explicit SafeRewrite(const RewriteCalls& rewriteCalls) : calls(rewriteCalls) {}
    // A copy that was neither committed nor abandoned stays where it is.
    ~SafeRewrite() = default;
    SafeRewrite(const SafeRewrite&) = delete;
    SafeRewrite& operator=(const SafeRewrite&) = delete;

    // Completes a save of the file at `path` that was cut short. Nothing happens to a file without one.
    PendingSave FinishPending(const char* path);

    // Whether a copy, or what was taken for one, lies beside the file: a save is under way or was cut short.
    // What was read of the file meanwhile may be half a text.
    static bool HasCopy(const char* path);

    // Lays the new text beside the file. False when the file must not be rewritten now; it is untouched then
    // and the reason has been logged. True also where the folder does not take a copy: the file is then
    // rewritten without one.
    bool Begin(const char* path, const std::string& newText);
    // The file holds the new text and is synchronised: removes the copy.
    void Commit() { RemoveCopy(); }
    // The file was not touched: removes the copy.
    void Abandon() { RemoveCopy(); }

  private:
    // A file by its folder, links resolved.
    struct Place {
        Descriptor folder;
        std::string fileName;
        std::string copyName;
    };
    enum class Attempt { Done, Again, Failed };

    static bool Locate(const char* path, Place& place);
    PendingSave FinishAt(const Place& place, const Descriptor& copyFile, const char* path);
    PendingSave Complete(const Place& place, const std::string& newText, const char* path);
    PendingSave SetAside(const Place& place, const char* path) const;
    Attempt MakeCopy(const std::string& newText, const char* path);
    Attempt FillCopy(const std::string& bytes, const char* path);
    void RemoveCopy();
    void RemoveCopyAt(const Place& place) const;

    const RewriteCalls& calls;
    Place target;
    Descriptor copyDescriptor;  // of the copy that Begin made; holds its lock
};

}  // namespace vexil
