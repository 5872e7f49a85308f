// SHA-256 by the system's own means.
#pragma once

#include <cstddef>
#include <string>

namespace Browser
{
/// A hash that is fed piece by piece. All methods throw `Common::Failure` where the system cannot work it out.
class Sha256
{
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void Add(const void* bytes, size_t size);
    /// 64 hexadecimal digits. Once, at the end.
    std::string Finish();

private:
    void* m_algorithm = nullptr;
    void* m_hash = nullptr;
};
} // namespace Browser
