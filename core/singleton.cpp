#include "qv/singleton.h"

#include <cstdlib>
#include <mutex>

#include "platform/memory.h"

namespace qv::Private {

namespace {

struct Entry {
    void* object;
    int32_t order;
    void (*function)(void*);
};

/// The registrations, ascending by order, equals in order of arrival. The last is the first to go.
class ExitTable {
public:
    void add(const Entry& entry) {
        const std::lock_guard lock(m_mutex);
        auto* grown = static_cast<Entry*>(std::realloc(m_entries, (m_count + 1) * sizeof(Entry)));
        if (grown == nullptr) return;  // The object lives until the process is gone.
        m_entries = grown;
        size_t at = m_count++;
        for (; at > 0 && entry.order < m_entries[at - 1].order; --at) m_entries[at] = m_entries[at - 1];
        m_entries[at] = entry;
        if (!m_running && std::atexit(&ExitTable::exitCallback) == 0) ++m_pending;
    }

private:
    static void exitCallback();

    void run() {
        std::unique_lock lock(m_mutex);
        m_running = true;
        callLast(lock);
        // Destructors may have registered while the pass ran; the last callback takes those along.
        if (--m_pending == 0) {
            while (m_count != 0) callLast(lock);
        }
        m_running = false;
    }

    void callLast(std::unique_lock<std::mutex>& lock) {
        if (m_count == 0) return;
        const Entry entry = m_entries[--m_count];
        if (m_count == 0) {
            std::free(m_entries);
            m_entries = nullptr;
        }
        lock.unlock();
        entry.function(entry.object);
        lock.lock();
    }

    std::mutex m_mutex;
    Entry* m_entries = nullptr;
    size_t m_count = 0;
    int32_t m_pending = 0;
    bool m_running = false;
};

/// Never destroyed: a registration may come from any destructor of the process, however late.
ExitTable& exitTable() {
    alignas(ExitTable) static unsigned char storage[sizeof(ExitTable)];
    static ExitTable* table = ::new (static_cast<void*>(storage)) ExitTable;
    return *table;
}

void ExitTable::exitCallback() { exitTable().run(); }

}  // namespace

void DeleteAtExit(void* object, int32_t order, void (*function)(void*)) { exitTable().add({object, order, function}); }

void switchToThread() { platform::yieldThread(); }

}  // namespace qv::Private
