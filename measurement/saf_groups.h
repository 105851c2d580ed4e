// Ordering the tags of a header into groups.
#pragma once

#include <cstdint>

#include "qv/array.h"
#include "qv/saf_file.h"
#include "qv/tag_file.h"

namespace qv {

/// One pass of ordering over a header's tags. Tags named "Group" open a group, "GroupComment" belongs to the group last
/// opened. HdSize at the front and DATA at the end keep their places.
class SafGroups {
public:
    SafGroups(TArray<SAF_TAG>& tags, const CTagFile& dictionary);

    /// Gathers the headings of recognised groups and their comments behind HdSize, by exchanging each with the tag that
    /// stands there.
    void bubble();
    /// After bubble(): moves each remaining tag into the group of its category. Comments wait and are moved in front of
    /// the next tag that finds its place.
    void place(bool createGroups);

private:
    /// Where a group's tags stand: first, and one behind the last. -1 without a heading.
    struct Span {
        int64_t start = -1;
        int64_t end = -1;
    };

    bool isLast(uint32_t index) const { return index + 1 >= m_tags.size(); }
    uint32_t categoryOf(const CString& name) const;
    void takeFront(uint32_t index);
    uint32_t insertHeading(uint32_t group);
    uint32_t findPlace(const Span& group, const CString& name) const;
    void moveInto(uint32_t group, uint32_t from, uint32_t to);

    TArray<SAF_TAG>& m_tags;
    const CTagFile& m_dictionary;
    Span m_groups[CTagEntry::categoryCount];
    uint32_t m_front = 1;  ///< Behind the headings gathered so far.
};

}  // namespace qv
