// What a deck loses when it is laid out anew.
#pragma once

#include <string>
#include <vector>

#include "json.h"
#include "qv/tape5_cards.h"

namespace tool {

/// Names of fields count in either case.
bool isSameName(const std::string& left, const std::string& right);

/// Whether two texts of a field say the same: the same number, whatever its digits, behind the same letters. Texts that
/// are no numbers do.
bool saysTheSame(const std::string& left, const std::string& right);

/// The fields of a deck as it was found, to be held against the deck that takes its place.
class AtmRewriting {
public:
    using Deck = qv::CModtranTape5File;

    /// Remarks that nothing is compared where the deck has too many fields.
    AtmRewriting(const std::string& path, const qv::TSharedPtr<qv::IFile>& found);

    /// Notes what the rewriting alone has changed: values that `deck` still has, and `written` (its bytes) has not,
    /// and fields whose card is gone.
    /// @param set  Names of fields of the run `index` that were set, which are the caller's to tell of.
    void compare(const Deck& deck, const qv::TSharedPtr<qv::IFile>& written, int32_t index,
                 const std::vector<std::string>& set);

    /// A remark for each value that has changed, and for each card that is gone.
    void tell() const;
    Json json() const;

private:
    bool list(const qv::TSharedPtr<qv::IFile>& deck, qv::TArray<qv::TAPE5_FIELD>& fields);

    struct Change {
        int32_t run;
        std::string card, field, before, after;
        bool isGone;  ///< Its card is.
    };

    std::string m_path;
    qv::TArray<qv::TAPE5_FIELD> m_found;
    std::vector<Change> m_changes;
};

}  // namespace tool
