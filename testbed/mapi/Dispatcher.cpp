// Delivery of notifications on other threads than those on which they arise.
#include "testbed/mapi/Dispatcher.h"

#include "common/Boundary.h"
#include "common/ComObject.h"
#include "common/PropValue.h"
#include "testbed/mapi/ThisModule.h"

#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>

namespace Testbed
{
namespace
{
constexpr const wchar_t* className = L"KivNst testbed: notifications";
constexpr UINT callMessage = WM_APP;

LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message != callMessage)
        return DefWindowProcW(window, message, wParam, lParam);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): what a message carries is a number.
    const std::unique_ptr<std::function<void()>> call(reinterpret_cast<std::function<void()>*>(lParam));
    (*call)();
    return 0;
}

// A thread that makes one call after the other.
class Worker
{
public:
    Worker() : m_thread([this] { Run(); }) {}
    ~Worker()
    {
        {
            const std::lock_guard guard(m_lock);
            m_end = true;
        }
        m_changed.notify_one();
        // A call may be the one that ends MAPI.
        if (m_thread.get_id() == std::this_thread::get_id())
            m_thread.detach();
        else
            m_thread.join();
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void Post(std::function<void()> call)
    {
        {
            const std::lock_guard guard(m_lock);
            m_calls.push_back(std::move(call));
        }
        m_changed.notify_one();
    }

private:
    void Run()
    {
        std::unique_lock lock(m_lock);
        for (;;)
        {
            m_changed.wait(lock, [this] { return m_end || !m_calls.empty(); });
            if (m_calls.empty())
                return;
            const std::function<void()> call = std::move(m_calls.front());
            m_calls.pop_front();
            lock.unlock();
            call();
            lock.lock();
        }
    }

    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_calls;
    bool m_end = false;
    std::thread m_thread;
};

struct Delivery
{
    std::unique_ptr<Worker> worker;
    std::unique_ptr<ThreadWindow> window;
};

std::mutex g_deliveryLock;
std::shared_ptr<Delivery>& Current()
{
    // Never destroyed: a client that ends without MAPIUninitialize leaves the worker to Windows, which has ended its
    // thread by the time this module is told of the process's end, and a wait for it would have no end.
    static auto& delivery = *new std::shared_ptr<Delivery>();
    return delivery;
}

class ThreadSink final : public ComObject<IMAPIAdviseSink, &IID_IMAPIAdviseSink>
{
public:
    explicit ThreadSink(IMAPIAdviseSink* sink) : m_sink(sink) {}

    STDMETHODIMP_(ULONG) OnNotify(ULONG cNotif, LPNOTIFICATION lpNotifications) override
    {
        if (m_window.IsOwnThread())
            return m_sink->OnNotify(cNotif, lpNotifications);
        try
        {
            m_window.Post([sink = m_sink, copies = std::make_shared<NotificationCopies>(cNotif, lpNotifications)]
                          { sink->OnNotify(copies->Count(), copies->Get()); });
        }
        catch (const std::exception&)
        {
            // A notification that nobody has memory for is lost.
        }
        return S_OK;
    }

private:
    ComPtr<IMAPIAdviseSink> m_sink;
    ThreadWindow m_window;
};
} // namespace

ThreadWindow::ThreadWindow() : m_thread(GetCurrentThreadId())
{
    static const ATOM registered = []
    {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = WindowProcedure;
        windowClass.hInstance = GetModuleHandleW(ThisModulePath().c_str());
        windowClass.lpszClassName = className;
        return RegisterClassW(&windowClass);
    }();
    m_window = registered ? CreateWindowExW(0, className, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr)
                          : nullptr;
    if (!m_window)
        Fail(MAPI_E_INVALID_OBJECT, L"There is no window for notifications.");
}

ThreadWindow::~ThreadWindow()
{
    if (!IsOwnThread())
    {
        PostMessageW(m_window, WM_CLOSE, 0, 0);
        return;
    }
    MSG message;
    while (PeekMessageW(&message, m_window, callMessage, callMessage, PM_REMOVE))
        DispatchMessageW(&message);
    DestroyWindow(m_window);
}

void ThreadWindow::Post(std::function<void()> call) const
{
    auto owned = std::make_unique<std::function<void()>>(std::move(call));
    // Whoever takes the message has it then.
    if (PostMessageW(m_window, callMessage, 0, reinterpret_cast<LPARAM>(owned.get())))
        owned.release(); // NOLINT(bugprone-unused-return-value)
} // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks)

void Dispatcher::Start(bool ownThread)
{
    auto delivery = std::make_shared<Delivery>();
    if (ownThread)
        delivery->worker = std::make_unique<Worker>();
    else
        delivery->window = std::make_unique<ThreadWindow>();
    const std::lock_guard guard(g_deliveryLock);
    Current() = std::move(delivery);
}

void Dispatcher::Stop() noexcept
{
    std::shared_ptr<Delivery> ended;
    const std::lock_guard guard(g_deliveryLock);
    ended.swap(Current());
}

void Dispatcher::Post(std::function<void()> call)
{
    std::shared_ptr<Delivery> delivery;
    {
        const std::lock_guard guard(g_deliveryLock);
        delivery = Current();
    }
    if (!delivery)
        call();
    else if (delivery->worker)
        delivery->worker->Post(std::move(call));
    else
        delivery->window->Post(std::move(call));
}

ComPtr<IMAPIAdviseSink> MakeThreadSink(IMAPIAdviseSink* sink)
{
    return MakeObject<ThreadSink>(sink);
}

struct NotificationCopies::State
{
    std::vector<NOTIFICATION> notifications;
    std::deque<Bytes> blocks;
    // The values of rows, whose strings the structures point into.
    std::deque<std::vector<SPropValue>> arrays;

    void* Copy(const void* data, size_t size)
    {
        if (!data)
            return nullptr;
        const auto* const bytes = static_cast<const BYTE*>(data);
        return blocks.emplace_back(bytes, bytes + size).data();
    }

    void Keep(LPENTRYID& entryId, ULONG size) { entryId = static_cast<LPENTRYID>(Copy(entryId, size)); }

    void Keep(LPSPropTagArray& tags)
    {
        if (tags)
            tags = static_cast<LPSPropTagArray>(Copy(tags, CbNewSPropTagArray(tags->cValues)));
    }

    void Keep(SPropValue& value)
    {
        switch (PROP_TYPE(value.ulPropTag))
        {
        case PT_UNICODE:
            value.Value.lpszW =
                static_cast<LPWSTR>(Copy(value.Value.lpszW, (std::wcslen(value.Value.lpszW) + 1) * sizeof(wchar_t)));
            break;
        case PT_STRING8:
            value.Value.lpszA = static_cast<LPSTR>(Copy(value.Value.lpszA, std::strlen(value.Value.lpszA) + 1));
            break;
        case PT_BINARY:
            value.Value.bin.lpb = static_cast<LPBYTE>(Copy(value.Value.bin.lpb, value.Value.bin.cb));
            break;
        case PT_CLSID:
            value.Value.lpguid = static_cast<LPGUID>(Copy(value.Value.lpguid, sizeof(GUID)));
            break;
        default:
            // Multi-values are not shown in rows.
            if (PROP_TYPE(value.ulPropTag) & MV_FLAG)
                value = SPropValue{PR_NULL, 0, {}};
            break;
        }
    }

    void Keep(LPSPropValue& values, ULONG count)
    {
        if (!values)
            return;
        auto& array = arrays.emplace_back(values, values + count);
        for (SPropValue& value : array)
            Keep(value);
        values = array.data();
    }

    void Keep(NOTIFICATION& notification)
    {
        auto& info = notification.info;
        switch (notification.ulEventType)
        {
        case fnevCriticalError:
            Keep(info.err.lpEntryID, info.err.cbEntryID);
            info.err.lpMAPIError = nullptr;
            break;
        case fnevNewMail:
            Keep(info.newmail.lpEntryID, info.newmail.cbEntryID);
            Keep(info.newmail.lpParentID, info.newmail.cbParentID);
            if (auto& text = info.newmail.lpszMessageClass)
            {
                const size_t size = info.newmail.ulFlags & MAPI_UNICODE
                                        ? (std::wcslen(reinterpret_cast<LPCWSTR>(text)) + 1) * sizeof(wchar_t)
                                        : std::strlen(reinterpret_cast<LPCSTR>(text)) + 1;
                text = static_cast<LPTSTR>(Copy(text, size));
            }
            break;
        case fnevObjectCreated:
        case fnevObjectDeleted:
        case fnevObjectModified:
        case fnevObjectMoved:
        case fnevObjectCopied:
        case fnevSearchComplete:
            Keep(info.obj.lpEntryID, info.obj.cbEntryID);
            Keep(info.obj.lpParentID, info.obj.cbParentID);
            Keep(info.obj.lpOldID, info.obj.cbOldID);
            Keep(info.obj.lpOldParentID, info.obj.cbOldParentID);
            Keep(info.obj.lpPropTagArray);
            break;
        case fnevTableModified:
            Keep(info.tab.propIndex);
            Keep(info.tab.propPrior);
            Keep(info.tab.row.lpProps, info.tab.row.cValues);
            break;
        case fnevStatusObjectModified:
            Keep(info.statobj.lpEntryID, info.statobj.cbEntryID);
            Keep(info.statobj.lpPropVals, info.statobj.cValues);
            break;
        case fnevExtended:
            info.ext.pbEventParameters = static_cast<LPBYTE>(Copy(info.ext.pbEventParameters, info.ext.cb));
            break;
        default:
            break;
        }
    }
};

NotificationCopies::NotificationCopies(ULONG count, const NOTIFICATION* notifications)
    : m_state(std::make_unique<State>())
{
    m_state->notifications.assign(notifications, notifications + count);
    for (NOTIFICATION& notification : m_state->notifications)
        m_state->Keep(notification);
}

NotificationCopies::~NotificationCopies() = default;

ULONG NotificationCopies::Count() const noexcept
{
    return static_cast<ULONG>(m_state->notifications.size());
}

LPNOTIFICATION NotificationCopies::Get() noexcept
{
    return m_state->notifications.data();
}
} // namespace Testbed
