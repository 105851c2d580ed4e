#include "qv/thread.h"

#include <atomic>
#include <memory>
#include <new>

#include "platform/memory.h"
#include "platform/message_queue.h"
#include "platform/thread.h"
#include "qv/diagnostic.h"

namespace qv {

CThread::CThread() = default;
CThread::~CThread() { platform::releaseThread(m_thread); }

void CThread::Run() {}

namespace {
bool refuse() {
    SetDiagnostic(u"", u"a new thread", u"none that the system would start");
    return false;
}
}  // namespace

bool CThread::start(void (*run)(void*), void* argument) {
    platform::releaseThread(m_thread);
    m_thread = platform::startThread(run, argument);
    if (m_thread == nullptr) return refuse();
    m_id = platform::threadId(m_thread);
    return true;
}

bool CThread::Create() {
    return start([](void* thread) noexcept { static_cast<CThread*>(thread)->Run(); }, this);
}

namespace {

struct CallRecord {
    IInvokable* call;
    bool owned;
    ~CallRecord() {
        if (owned) delete call;
    }
};

template <class Result>
struct FunctionRecord {
    Result (*function)(void*);
    void* argument;
};

void runCall(void* record) noexcept {
    const std::unique_ptr<CallRecord> held(static_cast<CallRecord*>(record));
    held->call->Invoke();
}

template <class Result>
void runFunction(void* record) noexcept {
    const std::unique_ptr<FunctionRecord<Result>> held(static_cast<FunctionRecord<Result>*>(record));
    (void)held->function(held->argument);
}

}  // namespace

bool CThread::Create(IInvokable* call, bool takeOwnership) {
    if (call == nullptr) return false;
    std::unique_ptr<CallRecord> record(new (std::nothrow) CallRecord{call, takeOwnership});
    if (record == nullptr) {
        if (takeOwnership) delete call;
        return refuse();
    }
    if (!start(&runCall, record.get())) return false;
    (void)record.release();
    return true;
}

template <class Result>
bool CThread::startFunction(Result (*function)(void*), void* argument) {
    std::unique_ptr<FunctionRecord<Result>> record(new (std::nothrow) FunctionRecord<Result>{function, argument});
    if (record == nullptr) return refuse();
    if (!start(&runFunction<Result>, record.get())) return false;
    (void)record.release();
    return true;
}

bool CThread::Create(int (*function)(void*), void* argument) {
    if (function == nullptr) return false;
    return startFunction(function, argument);
}

bool CThread::Create(uint32_t (*function)(void*), void* argument) {
    if (function == nullptr) return false;
    return startFunction(function, argument);
}

namespace {
constexpr uint32_t messagesBetweenLooks = 64;
}

void CThread::Join(bool pumpMessages) {
    if (m_thread == nullptr) return;
    const platform::WaitHandle ended = platform::threadEnded(m_thread);
    if (!pumpMessages) {
        (void)platform::waitForThread(m_thread, platform::forever);
        return;
    }
    using platform::messages::Outcome;
    int32_t exitCode = 0;
    do {
        Outcome outcome = Outcome::dispatched;
        for (uint32_t count = 1; outcome == Outcome::dispatched; ++count) {
            outcome = platform::messages::dispatchOne(exitCode);
            // Messages that post themselves again do not hold it up.
            if (count % messagesBetweenLooks == 0 && platform::waitForThread(m_thread, 0)) return;
        }
        if (outcome == Outcome::quit) return;
    } while (platform::messages::wait(ended, platform::WaitFor::anyMessage, platform::forever) ==
             platform::WaitResult::message);
}

bool CThread::JoinWithTimeout(uint32_t milliseconds) {
    return m_thread == nullptr || platform::waitForThread(m_thread, milliseconds);
}

bool CThread::getRunning() const { return m_thread != nullptr && !platform::waitForThread(m_thread, 0); }

intptr_t CThread::getHandle() const {
    return m_thread == nullptr ? platform::noHandle : platform::threadEnded(m_thread);
}

uint32_t CThread::GetCurrentThreadId() { return platform::currentThreadId(); }
void CThread::Sleep(uint32_t milliseconds) { platform::sleepThread(milliseconds); }
void CThread::Yield() { platform::yieldThread(); }

// CCOMScope ----------------------------------------------------------------------------------------------------------

namespace {

constexpr int32_t scopeFirst = 0;
constexpr int32_t scopeNested = 1;
constexpr auto scopeOtherKind = static_cast<int32_t>(0x80010106u);

struct Apartment {
    uint32_t scopes = 0;
    uint32_t kind = 0;
};
thread_local Apartment apartment;

int32_t openApartment(uint32_t flags) {
    const uint32_t kind = flags & CCOMScope::apartmentThreaded;
    if (apartment.scopes != 0 && apartment.kind != kind) return scopeOtherKind;
    apartment.kind = kind;
    return apartment.scopes++ == 0 ? scopeFirst : scopeNested;
}

}  // namespace

CCOMScope::CCOMScope(uint32_t flags) : m_result(openApartment(flags)) {}

CCOMScope::~CCOMScope() {
    if (m_result >= 0) --apartment.scopes;
}

bool qvInMainUIThread() {
    static std::atomic<uint32_t> mainThread{0};
    const uint32_t self = platform::currentThreadId();
    uint32_t known = 0;
    return mainThread.compare_exchange_strong(known, self) || known == self;
}

}  // namespace qv
