// A text that the system allocates.
#pragma once

#include <windows.h>

namespace Quillon::Detail
{

/// Owns a text that a function of the system gives to be freed with LocalFree.
class LocalText
{
public:
    LocalText() noexcept = default;
    LocalText(const LocalText&) = delete;
    LocalText& operator=(const LocalText&) = delete;
    ~LocalText() { LocalFree(m_text); }
    wchar_t** Put() noexcept { return &m_text; }
    wchar_t* Get() const noexcept { return m_text; }

private:
    wchar_t* m_text = nullptr;
};

} // namespace Quillon::Detail
