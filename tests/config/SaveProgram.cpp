// Saves one file, for tests that trace or kill it: "save PATH VALUE [LEFT-OUT]" sets every key of the section
// "keys" to VALUE and saves; LEFT-OUT names the step of the save that is left out. "open PATH" opens and
// closes the file. The exit status is 0 when that succeeded.
#include <cstring>
#include <string>

#include "config/IniFile.h"

namespace {

using vexil::IniFile;
using vexil::RewriteCalls;

// The first synchronisation of a save is the copy's, the second the file's.
int leftOutSync = 0;
int syncCount = 0;
int SyncAllButOne(int descriptor) {
    return ++syncCount == leftOutSync ? 0 : vexil::kSystemRewriteCalls.syncData(descriptor);
}
int SyncNothing(int) {
    return 0;
}
int RemoveNothing(int, const char*, int) {
    return 0;
}
std::FILE* ReopenWithoutEmptying(const char* path, const char*, std::FILE* stream) {
    return std::freopen(path, "r+", stream);
}
std::size_t WriteNothing(const void*, std::size_t, std::size_t count, std::FILE*) {
    return count;
}

RewriteCalls CallsWithout(const std::string& step) {
    RewriteCalls calls = vexil::kSystemRewriteCalls;
    if (step == "sync-copy" || step == "sync-file") {
        leftOutSync = step == "sync-copy" ? 1 : 2;
        calls.syncData = SyncAllButOne;
    } else if (step == "sync-folder") {
        calls.syncFolder = SyncNothing;
    } else if (step == "empty-file") {
        calls.reopen = ReopenWithoutEmptying;
    } else if (step == "write-file") {
        calls.writeText = WriteNothing;
    } else if (step == "remove-copy") {
        calls.remove = RemoveNothing;
    }
    return calls;
}

bool Save(const char* path, const char* value, const std::string& leftOut) {
    const RewriteCalls calls = CallsWithout(leftOut);
    IniFile file(calls);
    if (!file.Open(path)) {
        return false;
    }
    IniFile::StringList keys;
    file.GetKeyNames(keys, "keys");
    for (const vexil::svString& key : keys) {
        file.SetValue("keys", key.c_str(), value);
    }
    return file.Close();
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount >= 4 && std::strcmp(arguments[1], "save") == 0) {
        return Save(arguments[2], arguments[3], argumentCount > 4 ? arguments[4] : "") ? 0 : 1;
    }
    if (argumentCount == 3 && std::strcmp(arguments[1], "open") == 0) {
        IniFile file;
        return file.Open(arguments[2]) && file.Close() ? 0 : 1;
    }
    return 2;
}
