// Merging a column of one parameter table into another by a key column.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "core/text.h"
#include "measurement/pod_guard.h"
#include "measurement/pod_units.h"
#include "qv/persisted_array.h"
#include "qv/pod_file.h"

namespace qv {

namespace {

constexpr double daySeconds = 86400.0;
constexpr uint32_t keyWindowBytes = 0x4000;

const char16_t* formatOr1(const char16_t* format) { return format == nullptr || *format == 0 ? u"%f(1)" : format; }

bool couldNotRead(IPODFile& table, const char16_t* data, const char16_t* format) {
    table.SetError(CString::FromFormat(u"Could not get value from data \"%s\" with format \"%s\".",
                                       data == nullptr ? u"" : data, format));
    return false;
}

/// A cell as a finite number.
bool readNumber(double& value, const char16_t* data, const char16_t* format) {
    return data != nullptr && IPODFile::GetValue(value, data, format) && std::isfinite(value);
}

/// The keys of a table in the order of its rows, unwrapped.
class Keys {
public:
    Keys(IPODFile& table, uint32_t column, const char16_t* format, bool rollOver)
        : m_table(table), m_column(column), m_format(formatOr1(format)), m_rollOver(rollOver) {
        CString units;
        (void)table.GetColumnInfo(column, nullptr, nullptr, &units, nullptr);
        if (!Private::isIrig(units.c_str())) m_period = Private::podPeriod(units.c_str());
    }

    /// The period of cyclic keys, otherwise 0.
    double period() const { return m_period; }
    const char16_t* format() const { return m_format; }
    /// The text that did not read.
    CString culprit() const { return m_culprit; }

    /// The key of the next row, from row 0 on; false when it does not read.
    bool next(double& key) {
        if (!read(m_row, key)) return false;
        double neighbour = m_previous;
        const bool hasNeighbour = m_row != 0 || m_table.nDPs() > 1;
        if (m_period != 0.0 && hasNeighbour) {
            if (m_row == 0 && !read(1, neighbour)) return false;
            if (std::abs(key + m_period - neighbour) < std::abs(key - neighbour)) key += m_period;
        }
        if (m_rollOver && m_row != 0 && key < m_previous) {
            key += std::ceil((m_previous - key) / daySeconds) * daySeconds;
            if (key < m_previous) key += daySeconds;
        }
        m_previous = key;
        ++m_row;
        return true;
    }

private:
    bool read(uint32_t row, double& key) {
        const char16_t* data = m_table.GetValue(m_column, row);
        if (readNumber(key, data, m_format)) return true;
        m_culprit = CString(data);
        return false;
    }

    IPODFile& m_table;
    uint32_t m_column;
    const char16_t* m_format;
    bool m_rollOver;
    double m_period = 0.0;
    double m_previous = 0.0;
    uint32_t m_row = 0;
    CString m_culprit;
};

/// The keys of the added table in ascending order, with their rows.
class SortedKeys {
public:
    struct KEY {
        double key;
        uint32_t row;
        uint32_t unused;
    };

    void add(double key, uint32_t row) {
        m_ascending = m_ascending && (row == 0 || key >= m_last);
        m_least = std::min(m_least, key);
        m_greatest = std::max(m_greatest, key);
        m_last = key;
        m_keys.Add({key, row, 0});
    }
    /// Rows of equal keys stay in order.
    void sort() {
        if (m_ascending) return;
        std::vector<KEY> all(m_keys.size());
        for (uint32_t i = 0; i < all.size(); ++i) all[i] = m_keys[i];
        std::stable_sort(all.begin(), all.end(), [](const KEY& a, const KEY& b) { return a.key < b.key; });
        for (uint32_t i = 0; i < all.size(); ++i) m_keys[i] = all[i];
    }

    /// Finds the neighbours of `key`; they are the same where it is one of the keys. False outside the range.
    bool find(double key, KEY& below, KEY& above) {
        if (!(key >= m_least) || !(key <= m_greatest)) return false;
        const uint32_t first = firstNotBelow(key);
        above = m_keys[first];
        below = above.key == key ? above : m_keys[first - 1];
        return true;
    }

private:
    /// The first key that is not below `key`, searched from the last place in growing steps: rows that follow each
    /// other have keys that lie together.
    uint32_t firstNotBelow(double key) {
        const uint32_t count = m_keys.size();
        uint64_t low = 0, high = count - 1;
        uint64_t step = 1;
        if (m_keys[m_at].key < key) {
            low = uint64_t{m_at} + 1;
            while (low + step < high && m_keys[static_cast<uint32_t>(low + step)].key < key) low += step, step *= 2;
            high = std::min(low + step, high);
        } else {
            high = m_at;
            while (step < high && !(m_keys[static_cast<uint32_t>(high - step)].key < key)) high -= step, step *= 2;
            low = step < high ? high - step : 0;
        }
        while (low < high) {
            const uint64_t middle = (low + high) / 2;
            if (m_keys[static_cast<uint32_t>(middle)].key < key) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        return m_at = static_cast<uint32_t>(low);
    }

    TPersistedArray<KEY> m_keys{nullptr, keyWindowBytes};
    double m_last = 0.0;
    double m_least = std::numeric_limits<double>::infinity();  ///< Of all keys: the window need not go there.
    double m_greatest = -m_least;
    uint32_t m_at = 0;
    bool m_ascending = true;
};

/// The work of MergeWith, step by step.
class Merger {
public:
    Merger(IPODFile& to, IPODFile& add, const char16_t* valueFormat) : m_to(to), m_add(add), m_format(valueFormat) {}

    bool findColumns(const char16_t* keyColumn, const char16_t* addColumn, bool interpolate) {
        if (!m_to.FindColumn(keyColumn, m_toKey) || !m_add.FindColumn(keyColumn, m_addKey)) {
            return fail(u"Key column does not exist in pod file or add file.");
        }
        if (!m_add.FindColumn(addColumn, m_source)) return fail(u"Add column does not exists in add file.");
        CString type;
        (void)m_add.GetColumnInfo(m_source, &m_name, &m_classification, &m_units, &type);
        m_type = type;
        m_numeric = interpolate && text::compareNoCase(type.c_str(), u"Text") != 0;
        m_isNew = !m_to.FindColumn(addColumn, m_target);
        m_targetUnits = m_units;
        if (!m_isNew) (void)m_to.GetColumnInfo(m_target, nullptr, nullptr, &m_targetUnits, nullptr);
        (void)m_to.GetColumnInfo(m_toKey, nullptr, nullptr, &m_keyUnits, nullptr);
        (void)m_add.GetColumnInfo(m_addKey, nullptr, nullptr, &m_addKeyUnits, nullptr);
        double probe = 1.0;
        if (!IPODFile::ConvertUnit(probe, m_addKeyUnits.c_str(), m_keyUnits.c_str()) ||
            (m_numeric && !IPODFile::ConvertUnit(probe, m_units.c_str(), m_targetUnits.c_str()))) {
            return fail(u"No appropriate conversion available.");
        }
        probe = 1.0;
        (void)IPODFile::ConvertUnit(probe, m_units.c_str(), m_targetUnits.c_str());
        m_converts = m_numeric && probe != 1.0;
        return true;
    }

    /// Reads the added table's keys, and its values once to see that they read.
    bool readAdded(const char16_t* format, bool rollOver) {
        Keys keys(m_add, m_addKey, format, rollOver);
        for (uint32_t row = 0; row < m_add.nDPs(); ++row) {
            double key = 0.0, value = 0.0;
            if (!keys.next(key)) return couldNotRead(m_to, keys.culprit().c_str(), keys.format());
            (void)IPODFile::ConvertUnit(key, m_addKeyUnits.c_str(), m_keyUnits.c_str());
            m_keys.add(key, row);
            const char16_t* data = m_add.GetValue(m_source, row);
            const bool isEmpty = data != nullptr && *data == 0;
            if (m_numeric && !isEmpty && !readNumber(value, data, m_format)) return couldNotRead(m_to, data, m_format);
        }
        m_keys.sort();
        return true;
    }

    bool checkKeys(const char16_t* format, bool rollOver) {
        Keys keys(m_to, m_toKey, format, rollOver);
        for (uint32_t row = 0; row < m_to.nDPs(); ++row) {
            double key = 0.0;
            if (!keys.next(key)) return couldNotRead(m_to, keys.culprit().c_str(), keys.format());
        }
        return true;
    }

    /// Looks every row's key up and stores what is found.
    bool merge(const char16_t* format, bool rollOver, uint32_t& matched) {
        if (m_isNew) {
            if (!m_to.AddColumn(m_name.c_str(), m_classification.c_str(), m_units.c_str(), m_type.c_str())) {
                return fail(u"The column could not be added.");
            }
            m_target = m_to.nParams() - 1;
        }
        Keys keys(m_to, m_toKey, format, rollOver);
        const double period = keys.period();
        for (uint32_t row = 0; row < m_to.nDPs(); ++row) {
            double key = 0.0;
            SortedKeys::KEY below{}, above{};
            if (!keys.next(key)) return couldNotRead(m_to, keys.culprit().c_str(), keys.format());
            bool found = m_keys.find(key, below, above);
            for (const double shifted : {key + period, key - period}) {
                if (found || period == 0.0) break;
                found = m_keys.find(shifted, below, above);
                if (found) key = shifted;
            }
            if (!found) continue;
            ++matched;
            CString text;
            if (valueAt(key, below, above, text) && !m_to.PutValue(m_target, row, text.c_str())) {
                return fail(u"A value could not be stored.");
            }
        }
        return true;
    }

private:
    bool fail(const char16_t* message) {
        m_to.SetError(message);
        return false;
    }

    /// The text for a key between two others; false when there is none.
    bool valueAt(double key, const SortedKeys::KEY& below, const SortedKeys::KEY& above, CString& text) {
        const bool isOne = below.row == above.row;
        if (isOne || !m_numeric) {
            const bool isNearAbove = !isOne && above.key - key < key - below.key;
            text = CString(m_add.GetValue(m_source, isNearAbove ? above.row : below.row));
            if (text.IsEmpty() || !m_converts) return !text.IsEmpty();
        }
        double low = 0.0, high = 0.0;
        if (!readNumber(low, m_add.GetValue(m_source, below.row), m_format) ||
            !readNumber(high, m_add.GetValue(m_source, above.row), m_format)) {
            return false;
        }
        double value = isOne ? low : low + (high - low) * ((key - below.key) / (above.key - below.key));
        (void)IPODFile::ConvertUnit(value, m_units.c_str(), m_targetUnits.c_str());
        return IPODFile::PutValue(value, text, m_format);
    }

    IPODFile& m_to;
    IPODFile& m_add;
    const char16_t* m_format;
    uint32_t m_toKey = 0, m_addKey = 0, m_source = 0, m_target = 0;
    CString m_name, m_classification, m_units, m_type, m_targetUnits, m_keyUnits, m_addKeyUnits;
    bool m_numeric = true, m_isNew = false, m_converts = false;
    SortedKeys m_keys;
};

}  // namespace

bool IPODFile::MergeWith(IPODFile& add, const char16_t* keyColumn, const char16_t* addColumn, const char16_t* keyFormat,
                         const char16_t* addKeyFormat, const char16_t* valueFormat, bool interpolate, bool rollOver,
                         uint32_t* matched) {
    uint32_t count = 0;
    bool told = false;
    const bool merged = Private::guarded([&] {
        Merger merger(*this, add, formatOr1(valueFormat));
        const bool done = merger.findColumns(keyColumn, addColumn, interpolate) &&
                          merger.readAdded(addKeyFormat, rollOver) && merger.checkKeys(keyFormat, rollOver) &&
                          merger.merge(keyFormat, rollOver, count);
        told = true;
        return done;
    });
    if (!told) SetError(LastDiagnostic().ToString());
    if (matched != nullptr) *matched = count;
    return merged;
}

}  // namespace qv
