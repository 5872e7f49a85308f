// A small counted pointer to a COM object.
#pragma once

#include <unknwn.h>

#include <utility>

namespace Common
{
/// Owns one reference on a COM object, or none. Not thread-safe itself; the object's count is.
template <class T>
class ComPtr
{
public:
    ComPtr() noexcept = default;
    ComPtr(std::nullptr_t) noexcept {}

    /// Takes a further reference on `object`, which may be null.
    explicit ComPtr(T* object) noexcept : m_object(object)
    {
        if (m_object)
            m_object->AddRef();
    }

    ComPtr(const ComPtr& other) noexcept : ComPtr(other.m_object) {}
    ComPtr(ComPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}

    /// Converts from a pointer to a derived interface.
    template <class U>
        requires std::is_convertible_v<U*, T*>
    ComPtr(const ComPtr<U>& other) noexcept : ComPtr(static_cast<T*>(other.Get()))
    {
    }

    ~ComPtr() { Reset(); }

    ComPtr& operator=(const ComPtr& other) noexcept
    {
        ComPtr(other).Swap(*this);
        return *this;
    }

    ComPtr& operator=(ComPtr&& other) noexcept
    {
        ComPtr(std::move(other)).Swap(*this);
        return *this;
    }

    /// Takes over the caller's reference on `object`, which may be null.
    static ComPtr Attach(T* object) noexcept
    {
        ComPtr result;
        result.m_object = object;
        return result;
    }

    /// Gives the reference up to the caller, who releases it.
    [[nodiscard]] T* Detach() noexcept { return std::exchange(m_object, nullptr); }

    /// Releases what is held.
    void Reset() noexcept
    {
        if (T* object = std::exchange(m_object, nullptr))
            object->Release();
    }

    /// Releases what is held and gives the place where a callee stores an object with its reference.
    [[nodiscard]] T** Put() noexcept
    {
        Reset();
        return &m_object;
    }

    /// As `Put`, for callees that take an untyped or IUnknown place. The callee has to store this pointer's interface.
    template <class U>
    [[nodiscard]] U** PutAs() noexcept
    {
        return reinterpret_cast<U**>(Put());
    }

    T* Get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

    /// Asks the object for another interface; null when it does not answer or when there is no object.
    template <class U>
    ComPtr<U> As(REFIID iid) const noexcept
    {
        ComPtr<U> result;
        if (m_object && FAILED(m_object->QueryInterface(iid, reinterpret_cast<void**>(result.Put()))))
            return {};
        return result;
    }

    void Swap(ComPtr& other) noexcept { std::swap(m_object, other.m_object); }

private:
    T* m_object = nullptr;
};
} // namespace Common
