#include "qv/invoker.h"

#include <semaphore>

#include "platform/message_queue.h"
#include "platform/thread.h"
#include "qv/diagnostic.h"
#include "qv/thread.h"

namespace qv {

IInvokable::~IInvokable() = default;
IInvoker::~IInvoker() = default;

template class TSingletonPtr<CDirectInvoker, 1, 0>;
template class TSingletonPtr<CInvokerThread, 1, 0>;
template class TSingletonPtr<CMessageQueueInvoker, 1, 1>;

TSingletonPtr<CDirectInvoker, 1, 0> directInvoker;
TSingletonPtr<CInvokerThread, 1, 0> threadInvoker;
TSingletonPtr<CMessageQueueInvoker, 1, 1> messageQueueInvoker;

// CDirectInvoker -----------------------------------------------------------------------------------------------------

void CDirectInvoker::Invoke(IInvokable* call) {
    if (call != nullptr) call->Invoke();
}

void CDirectInvoker::Queue(IInvokable* call, bool takeOwnership) {
    Invoke(call);
    if (takeOwnership) delete call;
}

void CDirectInvoker::DequeueDuplicates(IInvokable*) {}
uint32_t CDirectInvoker::GetThreadID() { return platform::currentThreadId(); }

// CMessageQueueInvoker -----------------------------------------------------------------------------------------------

namespace {
/// Messages to the window: run this call now; run the next queued one.
constexpr uint32_t messageInvoke = 1024;
constexpr uint32_t messageQueued = 1025;
}  // namespace

CMessageQueueInvoker::CMessageQueueInvoker() {
    for (LIST& list : m_queue) list.entries.SetGrowthRate(0xFFFF);
    Init();
}

CMessageQueueInvoker::~CMessageQueueInvoker() {
    if (m_gone != nullptr) *m_gone = true;
    m_window->close();
    dropQueued();
    delete m_window;
}

void CMessageQueueInvoker::Init() {
    delete m_window;
    m_window = new platform::MessageTarget(&procedure, this);
    m_threadId = platform::currentThreadId();
    for (uint32_t left = m_taken->size() + m_added->size(); left > 0; --left) postQueued();
}

void CMessageQueueInvoker::postQueued() { m_window->post(std::unique_lock(m_window->mutex()), messageQueued, 0, this); }

void CMessageQueueInvoker::Invoke(IInvokable* call) {
    if (call != nullptr) m_window->send(messageInvoke, 0, call);
}

void CMessageQueueInvoker::Queue(IInvokable* call, bool takeOwnership) {
    if (call == nullptr) return;
    std::unique_lock lock(m_window->mutex());
    const bool added = add(call, takeOwnership);
    m_window->post(std::move(lock), messageQueued, 0, this);  // The call may have destroyed this when it returns.
    if (!added && takeOwnership) delete call;
}

void CMessageQueueInvoker::Push(IInvokable* call, bool takeOwnership) {
    {
        const std::lock_guard lock(m_window->mutex());
        if (add(call, takeOwnership)) return;
    }
    if (takeOwnership) delete call;
}

/// The window's mutex held.
bool CMessageQueueInvoker::add(IInvokable* call, bool takeOwnership) {
    return !m_retired && m_added->entries.Enqueue({call, takeOwnership});
}

bool CMessageQueueInvoker::Pop(IInvokable*& call, bool& takeOwnership) {
    const std::lock_guard lock(m_mutex);
    if (m_taken->size() == 0 && !takeAdded()) return false;
    const QUEUE_ENTRY entry = m_taken->entries.ConstGetItem(m_taken->first++);
    call = entry.call;
    takeOwnership = entry.takeOwnership;
    return true;
}

/// Puts what was added behind what is left of m_taken, as far as there is memory. False when there is nothing then.
/// m_mutex held.
bool CMessageQueueInvoker::takeAdded() {
    TQueue<QUEUE_ENTRY>& entries = m_taken->entries;
    const std::lock_guard lock(m_window->mutex());
    if (m_taken->size() == 0) {
        entries.Empty();
        m_taken->first = 0;
        std::swap(m_taken, m_added);
    } else if (entries.Dimension(entries.size() + m_added->entries.size())) {
        for (const QUEUE_ENTRY& entry : m_added->entries) entries.Enqueue(entry);
        m_added->entries.Empty();
    }
    return m_taken->size() != 0;
}

void CMessageQueueInvoker::DequeueDuplicates(IInvokable* call) {
    if (call == nullptr) return;
    TArray<IInvokable*> dropped;  // Deleted without the mutex: a destructor may queue something.
    {
        const std::lock_guard lock(m_mutex);
        (void)takeAdded();
        TQueue<QUEUE_ENTRY>& entries = m_taken->entries;
        uint32_t kept = 0;
        for (uint32_t i = std::exchange(m_taken->first, 0u); i < entries.size(); ++i) {
            const QUEUE_ENTRY entry = entries.ConstGetItem(i);
            if (!entry.call->SameHandler(call)) {
                entries[kept++] = entry;
            } else if (entry.takeOwnership && !dropped.Add(entry.call)) {
                delete entry.call;
            }
        }
        entries.SetSize(kept);
    }
    for (IInvokable* const duplicate : dropped) delete duplicate;
}

uint32_t CMessageQueueInvoker::GetThreadID() { return m_threadId; }

void CMessageQueueInvoker::procedure(void* invoker, uint32_t message, uintptr_t first, void* second) {
    if (message == messageInvoke) {
        auto* const call = static_cast<IInvokable*>(second);
        call->Invoke();
        if (first != 0) delete call;
    } else if (message == messageQueued) {
        static_cast<CMessageQueueInvoker*>(invoker)->runQueued();
    }
}

/// A message that comes while a queued call runs (which pumps) is posted once more, and runs the next call all the
/// same. The spare message finds an empty queue in the end. The call may destroy the invoker.
void CMessageQueueInvoker::runQueued() {
    if (m_busy) postQueued();
    m_busy = true;
    bool gone = false;
    bool* const outer = std::exchange(m_gone, &gone);
    IInvokable* call = nullptr;
    bool owned = false;
    if (Pop(call, owned)) {
        call->Invoke();
        if (owned) delete call;
    }
    if (gone) {
        if (outer != nullptr) *outer = true;
        return;
    }
    m_gone = outer;
    m_busy = false;
}

void CMessageQueueInvoker::dropQueued() {
    IInvokable* call = nullptr;
    bool owned = false;
    while (Pop(call, owned)) {
        if (owned) delete call;
    }
}

bool CMessageQueueInvoker::SafeWait(intptr_t handle, uint32_t timeout) {
    return platform::messages::wait(handle, platform::WaitFor::sent, timeout) == platform::WaitResult::handle;
}

void CMessageQueueInvoker::retire() {
    {
        const std::lock_guard lock(m_window->mutex());
        m_retired = true;
    }
    dropQueued();
}

// CInvokerThread -----------------------------------------------------------------------------------------------------

/// What the thread and the object share; the thread may outlive the object.
struct CInvokerThread::Shared {
    std::unique_ptr<CMessageQueueInvoker> inner;
    std::shared_ptr<platform::MessageQueue> queue;
    std::binary_semaphore started{0};
    std::shared_ptr<Shared> self;  // Held while the thread runs.
};

CInvokerThread::CInvokerThread() { (void)Init(); }

CInvokerThread::~CInvokerThread() {
    stop(platform::forever);
    platform::releaseThread(m_thread);
}

bool CInvokerThread::Init() {
    if (m_thread != nullptr) return true;
    auto shared = std::make_shared<Shared>();
    shared->self = shared;
    m_thread = platform::startThread(&threadProcedure, shared.get());
    if (m_thread == nullptr) {
        shared->self.reset();
        SetDiagnostic(u"", u"a thread for calls", u"none that the system would start");
        return false;
    }
    shared->started.acquire();
    m_shared = std::move(shared);
    return true;
}

void CInvokerThread::threadProcedure(void* argument) {
    const std::shared_ptr<Shared> shared = std::move(static_cast<Shared*>(argument)->self);
    shared->inner = std::make_unique<CMessageQueueInvoker>();
    shared->queue = platform::messages::thisQueue();
    shared->started.release();
    const CCOMScope apartment;
    int32_t exitCode = 0;
    for (;;) {
        const platform::messages::Outcome outcome = platform::messages::dispatchOne(exitCode);
        if (outcome == platform::messages::Outcome::quit) return;
        if (outcome == platform::messages::Outcome::empty) platform::messages::waitForMessage();
    }
}

/// False when the thread has not ended within the time.
bool CInvokerThread::stop(uint32_t milliseconds) {
    if (m_thread == nullptr) return true;
    m_shared->inner->retire();
    platform::messages::postQuitTo(*m_shared->queue, 0);
    if (platform::threadId(m_thread) == platform::currentThreadId()) return false;
    return platform::messages::waitServing(platform::threadEnded(m_thread), milliseconds);
}

void CInvokerThread::retire() {
    if (stop(2000)) platform::releaseThread(std::exchange(m_thread, nullptr));
}

void CInvokerThread::Invoke(IInvokable* call) {
    if (m_shared) m_shared->inner->Invoke(call);
}

void CInvokerThread::Queue(IInvokable* call, bool takeOwnership) {
    if (m_shared) {
        m_shared->inner->Queue(call, takeOwnership);
    } else if (takeOwnership) {
        delete call;
    }
}

void CInvokerThread::DequeueDuplicates(IInvokable* call) {
    if (m_shared) m_shared->inner->DequeueDuplicates(call);
}

uint32_t CInvokerThread::GetThreadID() { return m_shared ? m_shared->inner->GetThreadID() : 0; }

}  // namespace qv
