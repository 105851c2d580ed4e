// Tag dictionaries as files in their forms.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "qv/tag_file.h"

namespace tool {

/// How a tag dictionary is kept; older versions of the binary form are read like the newest.
enum class DictionaryForm { unknown, binary, xml, structured };

/// The form of the dictionary in a file that begins with `head`; unknown when it is none.
DictionaryForm dictionaryForm(std::string_view head);

/// Reads a dictionary in any form. Fails with one sentence for another kind of file, and for a damaged one.
void loadDictionary(qv::CTagFile& dictionary, const std::string& path);

/// The file of a dictionary in a form. It sorts the entries. `path` is for the sentence when that fails.
std::string dictionaryBytes(qv::CTagFile& dictionary, DictionaryForm form, const std::string& path);

/// A field of an entry that a form does not give back: "bounds".
struct DictionaryLoss {
    std::string name;  ///< The entry's.
    std::string field;
};
/// What is lost between a sorted dictionary and what was read back from its file `bytes`.
std::vector<DictionaryLoss> dictionaryLosses(qv::CTagFile& wanted, const std::string& bytes, const std::string& path);

}  // namespace tool
