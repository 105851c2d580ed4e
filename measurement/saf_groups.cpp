#include "measurement/saf_groups.h"

#include <algorithm>

#include "core/text.h"

namespace qv {

namespace {

constexpr char16_t groupTag[] = u"Group";
constexpr char16_t groupCommentTag[] = u"GroupComment";
constexpr auto commentCategory = static_cast<uint32_t>(CTagEntry::CATEGORY::Comment);

bool isNamed(const SAF_TAG& tag, const char16_t* name) { return text::compareNoCase(tag.name.c_str(), name) == 0; }

}  // namespace

SafGroups::SafGroups(TArray<SAF_TAG>& tags, const CTagFile& dictionary) : m_tags(tags), m_dictionary(dictionary) {}

/// The group of a tag: its category in the dictionary, 0 for an unknown tag or a category that does not exist.
uint32_t SafGroups::categoryOf(const CString& name) const {
    uint32_t index = 0;
    if (!m_dictionary.FindTag(name.c_str(), index)) return 0;
    const auto category = static_cast<uint32_t>(m_dictionary.data()[index].GetCategory());
    return category < CTagEntry::categoryCount ? category : 0;
}

void SafGroups::takeFront(uint32_t index) { m_tags.Swap(index, m_front++); }

void SafGroups::bubble() {
    int32_t last = -1;  // the group that was recognised last; an unknown heading does not change it
    for (uint32_t i = 1; !isLast(i); ++i) {
        const SAF_TAG& tag = m_tags[i];
        CTagEntry::CATEGORY category{};
        if (isNamed(tag, groupTag)) {
            if (!CTagEntry::StrToCategory(tag.value.c_str(), category)) continue;
            takeFront(i);
            last = static_cast<int32_t>(category);
            m_groups[last] = {m_front, m_front};
        } else if (isNamed(tag, groupCommentTag) && last >= 0) {
            takeFront(i);
            const int64_t from = m_groups[last].start;
            for (Span& group : m_groups) {
                if (group.start >= from) group = {group.start + 1, group.end + 1};
            }
        }
    }
}

void SafGroups::place(bool createGroups) {
    uint16_t pending = 0;
    for (uint32_t i = m_front; !isLast(i); ++i) {
        const uint32_t group = categoryOf(m_tags[i].name);
        if (group == commentCategory) {
            ++pending;
            continue;
        }
        if (m_groups[group].start < 0) {
            if (!createGroups) {
                pending = 0;
                continue;
            }
            i += insertHeading(group);
        }
        uint32_t to = findPlace(m_groups[group], m_tags[i].name);
        for (; pending > 0; --pending) moveInto(group, i - pending, to++);
        moveInto(group, i, to);
    }
}

/// Adds a heading behind all groups. Returns how many tags were inserted.
uint32_t SafGroups::insertHeading(uint32_t group) {
    int64_t at = 1;
    for (const Span& known : m_groups) at = std::max(at, known.end);
    SAF_TAG heading{CString(groupTag), CString(CTagEntry::CategoryToStr(static_cast<CTagEntry::CATEGORY>(group)))};
    if (!m_tags.Insert(heading, static_cast<uint32_t>(at))) return 0;
    m_groups[group] = {at + 1, at + 1};
    return 1;
}

/// Behind the last member, from the front on, that orders before `name`. Comments among the members are passed over.
uint32_t SafGroups::findPlace(const Span& group, const CString& name) const {
    int64_t to = group.start;
    for (int64_t i = group.start; i < group.end; ++i) {
        const CString& member = m_tags.data()[i].name;
        if (categoryOf(member) == commentCategory) continue;
        if (m_dictionary.CompareTags(name.c_str(), member.c_str()) < 1) break;
        to = i + 1;
    }
    return static_cast<uint32_t>(to);
}

/// Moves a tag from behind the groups into one of them; later groups stand one further back.
void SafGroups::moveInto(uint32_t group, uint32_t from, uint32_t to) {
    m_tags.Move(from, to);
    const int64_t start = m_groups[group].start;
    for (Span& other : m_groups) {
        if (other.start > start) other = {other.start + 1, other.end + 1};
    }
    ++m_groups[group].end;
}

bool CSAFFile::BubbleGroups() {
    SafGroups(m_tags, *m_tagFile).bubble();
    return true;
}

bool CSAFFile::SortByGroups(bool createGroups) {
    SafGroups groups(m_tags, *m_tagFile);
    groups.bubble();
    groups.place(createGroups);
    return true;
}

}  // namespace qv
