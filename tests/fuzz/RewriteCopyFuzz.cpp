// The copy beside a file that is being saved. The input is taken for a copy, then for the text of one.
#include "config/RewriteCopy.h"

#include "tests/fuzz/FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace vexil;
    using namespace vexil::test;
    const std::string input(reinterpret_cast<const char*>(bytes), size);
    const std::string name = "file.vexil3";
    RewriteCopy copy;
    if (DecodeRewriteCopy(input, name, copy) == CopyState::Complete) {
        Check(EncodeRewriteCopy(copy) == input, "a complete copy is what is written");
    }

    const RewriteCopy made{name, DigestOf("old"), input};
    const std::string encoded = EncodeRewriteCopy(made);
    Check(DecodeRewriteCopy(encoded, name, copy) == CopyState::Complete && copy.newText == input &&
              copy.oldText == made.oldText,
          "what was written is complete");
    Check(DecodeRewriteCopy(encoded, "other", copy) == CopyState::Foreign, "a copy belongs to one file");
    const std::size_t cut = input.empty() ? 0 : bytes[0] * encoded.size() / 256;
    Check(DecodeRewriteCopy(encoded.substr(0, cut), name, copy) == CopyState::Incomplete,
          "a cut copy is incomplete");
    std::string changed = encoded;
    changed[cut] = static_cast<char>(changed[cut] ^ 1);
    Check(DecodeRewriteCopy(changed, name, copy) != CopyState::Complete, "a changed copy is not complete");
    Check(StateOfRewrite(input, made) == RewriteState::Done, "the new text is the end of the rewrite");
    const RewriteState cutState = StateOfRewrite(input.substr(0, input.size() / 2), made);
    Check(cutState != RewriteState::Edited, "a part of the new text is a rewrite cut short");
    return 0;
}
