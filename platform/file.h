// What the library needs of the system for disk files. Paths are UTF-8 with `/`. A result of type int is 0 or an error
// that errorText() explains. Every call repeats itself when a signal interrupts it; descriptors do not survive an exec.
#pragma once

#include <cstdint>

namespace qv::platform {

/// An open file; -1 is none.
using FileHandle = intptr_t;
inline constexpr FileHandle invalidFile = -1;

/// Another opener denies what was asked for, or does what was to be denied. Beside the system's own errors.
inline constexpr int sharingViolation = -1;

/// English, in static memory, whatever the locale.
const char* errorText(int error);

enum class Disposition { openOrCreate, openExisting, createTruncate, createNew };

struct OpenRequest {
    const char* path;
    Disposition disposition;
    bool read, write;            ///< Access; with neither, the file can only be asked for its size and closed.
    bool shareRead, shareWrite;  ///< What others may do meanwhile.
    bool readOnly;               ///< A new or truncated file gets no write permission.
    bool everyone;               ///< A new file gets mode 0666 whatever the umask.
    bool writeThrough;           ///< A write returns when its data is on the device.
    bool append;                 ///< Every write goes to the end that the file has then, until endAppending.
};

/// Opens a file, never a directory. Shares are settled before anything is truncated.
int openFile(const OpenRequest& request, FileHandle& file);
void closeFile(FileHandle file);

/// Claims what an opener does and denies against all other claims on the file, and holds it until the descriptor and
/// its duplicates are closed. sharingViolation when there is a conflict; 0 also where the file system has no locks.
int claimShares(FileHandle file, bool read, bool write, bool shareRead, bool shareWrite);
/// The claim to write, for a descriptor that can only read, and its end.
int claimWritingFromReader(FileHandle file);
void endWritingFromReader(FileHandle file);

/// The bytes moved; below `count` at the end of the data, or with `error` set.
uint32_t readFile(FileHandle file, void* data, uint32_t count, int& error);
uint32_t writeFile(FileHandle file, const void* data, uint32_t count, int& error);

/// Writes go to the position again. Holds for the duplicates of the descriptor, too.
int endAppending(FileHandle file);

enum class Origin { begin, current, end };
/// The new position; -1, with nothing moved, when that fails.
int64_t seekFile(FileHandle file, int64_t offset, Origin origin);
/// Bytes; 0 when it cannot be told.
int64_t fileSize(FileHandle file);
/// The position stays.
int resizeFile(FileHandle file, int64_t size);
int flushFile(FileHandle file);

/// Removes the name under which the open file is known now, if it still has one.
int deleteOpenFile(FileHandle file);

}  // namespace qv::platform
