// A run of the MODTRAN atmosphere program, an outside program that has to be installed: its input deck is written, the
// program is started and followed, and its output table is read. Start with SetModtranExePath, then RunModtran.
#pragma once

#include <cstdint>

#include "qv/api.h"

namespace qv {

class CModtranTape5File;
class CModtranTape7File;

/// The program's path, shared by the whole process; it holds at most 511 characters. "c:\modtran\mod4v3r1.exe" until it
/// is set. Not protected: it must not be set while a run or another call looks at it.
/// @return  False, with a diagnostic and the path as it was, when there is no such file on disk. A longer path is cut.
QV_API bool SetModtranExePath(const char16_t* path);
QV_API const char16_t* GetModtranExePath();

/// Runs the program on a deck and waits for its end, however long that takes.
///
/// The program works in the folder that it stands in: its input is the file "tape5" there, its output "tape7". An
/// output of an earlier run is removed first. Two runs in one folder must not overlap.
/// The program gets no input and no descriptor of this process; what it prints is looked through for "*ERR*" in chunks
/// of at most 1023 bytes, so that a marker that falls on the border of two is not seen.
///
/// @param tape7  Receives the tables; holds no runs after a failure of its own reading, and is left alone before that.
/// @param flags  Handed to CModtranTape7File::Load.
/// @return  False, with a diagnostic: the deck cannot be saved (nothing is started then), the old output cannot be
///          removed, the program cannot be started, it printed the marker or was ended by a signal (its output is not
///          read then), or its output cannot be read. Its exit code does not decide.
QV_API bool RunModtran(CModtranTape5File& tape5, CModtranTape7File& tape7, uint64_t flags);

}  // namespace qv
