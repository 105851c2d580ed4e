// Opening and closing gaps in a file, with the truth as result.
#pragma once

#include <cstdint>

namespace qv {
class IFile;
}

namespace qv::Private {

/// How an edit in place ended.
enum class EditOutcome {
    done,
    /// A read or write came short. What had moved has gone back, so that the file is as it was (of the bytes
    /// that closeGap was to remove only their number); unless going back failed as well. The diagnostic says where.
    refused,
    noMemory,  ///< No buffer was got; nothing was done.
};

/// Moves all from `position` on up by `count` bytes. At or behind the end nothing happens.
EditOutcome openGap(IFile& file, int64_t position, int64_t count);

/// Moves all behind `position` + `count` down to `position` and cuts the file there. A file that cannot be cut keeps
/// its last `count` bytes, and that is `done` as well.
EditOutcome closeGap(IFile& file, int64_t position, int64_t count);

}  // namespace qv::Private
