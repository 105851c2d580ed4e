#include "copy.h"

#include <algorithm>
#include <vector>

#include "progress.h"
#include "qv/diagnostic.h"

namespace tool {

void copyContents(qv::IFile& in, qv::IFile& out, const std::string& from, const std::string& to,
                  const Shortfall& shortfall) {
    std::vector<char> block(1 << 20);
    in.SeekToBegin();
    Progress progress(to, static_cast<uint64_t>(in.GetSize()), 1);
    for (int64_t left = in.GetSize(); left > 0;) {
        const auto count = static_cast<uint32_t>(std::min<int64_t>(left, static_cast<int64_t>(block.size())));
        qv::ClearDiagnostic();
        if (!in.ReadBytes(block.data(), count)) throw diagnosed(shortfall.exitCode, from, shortfall.sentence);
        if (!out.WriteBytes(block.data(), count)) {
            throw diagnosed(Exit::io, to, "cannot be written (is the disk full?)");
        }
        progress.advance(count);
        left -= count;
    }
}

}  // namespace tool
