// SHA-256 by the system's own means.
#include "tools/browser/Sha256.h"

#include "common/Boundary.h"
#include "common/Text.h"

#include <bcrypt.h>

#include <algorithm>

using namespace Common;

namespace Browser
{
namespace
{
void Require(NTSTATUS status)
{
    if (status < 0)
        Fail(MAPI_E_CALL_FAILED, L"The system cannot work out a SHA-256.");
}
} // namespace

Sha256::Sha256()
{
    Require(BCryptOpenAlgorithmProvider(&m_algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0));
    if (BCryptCreateHash(m_algorithm, &m_hash, nullptr, 0, nullptr, 0, 0) < 0)
    {
        BCryptCloseAlgorithmProvider(m_algorithm, 0);
        Require(-1);
    }
}

Sha256::~Sha256()
{
    BCryptDestroyHash(m_hash);
    BCryptCloseAlgorithmProvider(m_algorithm, 0);
}

void Sha256::Add(const void* bytes, size_t size)
{
    constexpr size_t portion = size_t{1} << 30;
    // The system's function takes the bytes without const and does not write to them.
    auto* position = static_cast<PUCHAR>(const_cast<void*>(bytes));
    while (size != 0)
    {
        const auto part = static_cast<ULONG>(std::min(size, portion));
        Require(BCryptHashData(m_hash, position, part, 0));
        position += part;
        size -= part;
    }
}

std::string Sha256::Finish()
{
    constexpr ULONG size = 32;
    BYTE digest[size] = {};
    Require(BCryptFinishHash(m_hash, digest, size, 0));
    return Utf8FromWide(HexText(digest, size));
}
} // namespace Browser
