// SHA-256 by the system's own means.
#include "tools/browser/Sha256.h"

#include "common/Boundary.h"
#include "common/Text.h"

#include <bcrypt.h>

#include <fstream>
#include <vector>

using namespace Common;

namespace Browser
{
namespace
{
class Hash
{
public:
    Hash()
    {
        Require(BCryptOpenAlgorithmProvider(&m_algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0));
        Require(BCryptCreateHash(m_algorithm, &m_hash, nullptr, 0, nullptr, 0, 0));
    }
    ~Hash()
    {
        if (m_hash)
            BCryptDestroyHash(m_hash);
        if (m_algorithm)
            BCryptCloseAlgorithmProvider(m_algorithm, 0);
    }
    Hash(const Hash&) = delete;
    Hash& operator=(const Hash&) = delete;

    void Add(char* bytes, size_t size)
    {
        Require(BCryptHashData(m_hash, reinterpret_cast<PUCHAR>(bytes), static_cast<ULONG>(size), 0));
    }
    std::string Finish()
    {
        constexpr ULONG size = 32;
        BYTE digest[size] = {};
        Require(BCryptFinishHash(m_hash, digest, size, 0));
        return Utf8FromWide(HexText(digest, size));
    }

private:
    static void Require(NTSTATUS status)
    {
        if (status < 0)
            Fail(MAPI_E_CALL_FAILED, L"The system cannot work out a SHA-256.");
    }

    BCRYPT_ALG_HANDLE m_algorithm = nullptr;
    BCRYPT_HASH_HANDLE m_hash = nullptr;
};
} // namespace

std::string Sha256Of(const std::filesystem::path& file)
{
    std::error_code error;
    if (!std::filesystem::exists(file, error))
        return {};
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        Fail(MAPI_E_NO_ACCESS, L"\"" + file.wstring() + L"\" cannot be read.");
    Hash hash;
    std::vector<char> buffer(1u << 20);
    while (stream)
    {
        stream.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        hash.Add(buffer.data(), static_cast<size_t>(stream.gcount()));
    }
    return hash.Finish();
}
} // namespace Browser
