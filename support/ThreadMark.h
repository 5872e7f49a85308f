// Marks that a thread carries while it does what must not happen again within itself.
#pragma once

#include <cstdint>

namespace Quillon::Detail
{

/// What a thread is marked as doing; each is a bit.
enum class Doing : std::uintptr_t
{
    MakingText = 1, ///< the text of an event "Throwing exception"
    WritingLine = 2 ///< of the log
};

/// Marks the calling thread as long as it lives. All marks share one slot of the system's thread-local storage, which
/// is taken when the first is set; where the system has none left, nobody is marked.
class ThreadMark
{
public:
    explicit ThreadMark(Doing what) noexcept;
    ThreadMark(const ThreadMark&) = delete;
    ThreadMark& operator=(const ThreadMark&) = delete;
    ~ThreadMark();

    /// Whether the thread was marked so already.
    bool IsNested() const noexcept;

private:
    std::uintptr_t m_before;
    std::uintptr_t m_bit;
};

/// Gives the slot back. No thread is marked then, nor will be: the library is being unloaded.
void ReleaseThreadMarks() noexcept;

} // namespace Quillon::Detail
