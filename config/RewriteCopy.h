// The copy of a text that lies beside its file while the file is being rewritten in place, and the rules by
// which it is told later whether the rewrite was cut short. Bytes only; the files are SafeRewrite's.
//
// A copy is one head line followed by the new text:
//   "vexil3 unfinished save 1 SUM LENGTH OLDLENGTH OLDSUM NAME\n"
// with four numbers of 16 hexadecimal digits: the checksum of everything behind SUM's blank, the length of
// the new text, length and checksum of the text that the rewrite replaces; NAME is the file's name in
// hexadecimal. The head line means nothing in an INI file, so a copy that was set aside can be loaded as it
// is.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vexil {

struct TextDigest {
    std::uint64_t length = 0;
    std::uint64_t sum = 0;

    bool operator==(const TextDigest&) const = default;
};

// The checksum finds accidents, not forgery.
TextDigest DigestOf(std::string_view text);

struct RewriteCopy {
    std::string fileName;  // without its folder
    TextDigest oldText;
    std::string newText;
};

// The name of a file's copy, in the folder of the file. Never longer than a file name may be.
std::string RewriteCopyName(const std::string& fileName);

std::string EncodeRewriteCopy(const RewriteCopy& copy);

enum class CopyState {
    Complete,    // every byte is there
    Incomplete,  // the beginning of a copy, or one with holes: its rewrite has not begun
    Foreign      // not a copy of this file
};

// Reads a copy; `copy` is filled when it is complete.
CopyState DecodeRewriteCopy(std::string_view bytes, const std::string& fileName, RewriteCopy& copy);

enum class RewriteState {
    NotBegun,  // the file still holds the old text
    CutShort,  // it holds a part of the new text, where bytes that never reached the disk read as 0
    Done,      // it holds the new text
    Edited     // it holds something else
};

RewriteState StateOfRewrite(std::string_view current, const RewriteCopy& copy);

}  // namespace vexil
