// What the command-line programs share: the console and COM for as long as they run, and the command line's errors.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <string>

namespace Tools
{

/// While it lives, the console shows UTF-8. Afterwards it has its code page again, also where Ctrl-C or the closing of
/// the console ends the program. One at a time.
class Utf8Console
{
public:
    Utf8Console() noexcept;
    Utf8Console(const Utf8Console&) = delete;
    Utf8Console& operator=(const Utf8Console&) = delete;
    ~Utf8Console();
};

/// The calling thread's use of COM.
class ComApartment
{
public:
    ComApartment() noexcept : m_result(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    ~ComApartment()
    {
        if (SUCCEEDED(m_result))
            CoUninitialize();
    }
    HRESULT Result() const noexcept { return m_result; }

private:
    HRESULT m_result;
};

/// What is wrong with a command line, which CLI11 says as `error`: an unknown command is named. `App` is CLI::App.
template <class App>
std::string ExplainUsage(const App& app, const std::exception& error)
{
    if (app.get_subcommands().empty())
        for (const std::string& argument : app.remaining())
            if (!argument.starts_with('-'))
                return "There is no command \"" + argument + "\"";
    return error.what();
}

} // namespace Tools
