// What happens to files, held back until a file has settled.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tool {

enum class Happening { isNew, changed, removed, renamed };

struct FileEvent {
    Happening what = Happening::isNew;
    std::string path;
    std::string from;  ///< The old path of a rename.
};

/// Holds new and changed files back until nothing has happened to them for a while, so that one that is written piece
/// by piece is told of once. One that is gone by then is not told of, and one that was renamed is new under its last
/// name. All else passes at once. Times are milliseconds of a clock that does not go back.
class Settling {
public:
    /// 0 holds nothing back.
    explicit Settling(int64_t milliseconds) : m_milliseconds(milliseconds) {}

    /// Takes what happened, and appends what is to be told at once.
    void take(const FileEvent& event, int64_t now, std::vector<FileEvent>& told);
    /// Appends the files that have settled, in the order in which they did.
    void takeSettled(int64_t now, std::vector<FileEvent>& told);
    /// When the next file settles, unless something happens to it; never without one.
    int64_t next() const;

    static constexpr int64_t never = INT64_MAX;

private:
    struct Held {
        Happening what;
        int64_t until;
    };

    bool rename(const FileEvent& event, int64_t until);

    const int64_t m_milliseconds;
    std::map<std::string, Held> m_held;
};

}  // namespace tool
