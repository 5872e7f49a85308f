// Streams in memory.
#include "tests/testbed/Environment.h"

#include "common/MemoryStream.h"

using namespace Testbed;

namespace
{
LARGE_INTEGER Move(LONGLONG distance)
{
    LARGE_INTEGER move;
    move.QuadPart = distance;
    return move;
}

ULARGE_INTEGER Size(ULONGLONG size)
{
    ULARGE_INTEGER value;
    value.QuadPart = size;
    return value;
}
} // namespace

TEST(MemoryStream, ReadsAndSeeks)
{
    const auto stream = CreateMemoryStream({1, 2, 3, 4});
    BYTE buffer[8] = {};
    ULONG got = 0;
    EXPECT_EQ(stream->Read(buffer, 3, &got), S_OK);
    EXPECT_EQ(got, 3u);
    EXPECT_EQ(stream->Read(buffer, 3, &got), S_FALSE);
    EXPECT_EQ(got, 1u);
    EXPECT_EQ(buffer[0], 4);
    ULARGE_INTEGER position;
    EXPECT_EQ(stream->Seek(Move(-1), STREAM_SEEK_END, &position), S_OK);
    EXPECT_EQ(position.QuadPart, 3u);
    EXPECT_EQ(stream->Seek(Move(-5), STREAM_SEEK_CUR, nullptr), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(stream->Seek(Move(0), 9, nullptr), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(stream->Write(buffer, 1, nullptr), STG_E_ACCESSDENIED);
    EXPECT_EQ(stream->SetSize(Size(1)), STG_E_ACCESSDENIED);
}

TEST(MemoryStream, CommitsRevertsAndKeepsTheRestForItsRelease)
{
    std::vector<Bytes> committed;
    {
        const auto stream = CreateMemoryStream({1, 2},
                                               [&committed](const Bytes& bytes)
                                               {
                                                   committed.push_back(bytes);
                                                   return S_OK;
                                               });
        const BYTE bytes[] = {9};
        EXPECT_EQ(stream->Commit(0), S_OK);
        EXPECT_TRUE(committed.empty());
        EXPECT_EQ(stream->Write(bytes, 1, nullptr), S_OK);
        EXPECT_EQ(stream->Commit(0), S_OK);
        EXPECT_EQ(committed, (std::vector<Bytes>{{9, 2}}));
        EXPECT_EQ(stream->Write(bytes, 1, nullptr), S_OK);
        EXPECT_EQ(stream->Revert(), S_OK);
        EXPECT_EQ(ReadStream(*stream, 10), (Bytes{9, 2}));
        EXPECT_EQ(stream->SetSize(Size(1)), S_OK);
    }
    EXPECT_EQ(committed, (std::vector<Bytes>{{9, 2}, {9}}));
}

TEST(MemoryStream, GivesTheFailureOfItsTarget)
{
    const auto stream = CreateMemoryStream({}, [](const Bytes&) { return MAPI_E_NO_ACCESS; });
    EXPECT_EQ(stream->Write("a", 1, nullptr), S_OK);
    EXPECT_EQ(stream->Commit(0), MAPI_E_NO_ACCESS);
}

TEST(MemoryStream, RefusesAbsurdSizes)
{
    const auto stream = CreateMemoryStream({}, [](const Bytes&) { return S_OK; });
    EXPECT_EQ(stream->SetSize(Size(ULONGLONG(1) << 40)), STG_E_MEDIUMFULL);
    STATSTG stat;
    EXPECT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(stat.cbSize.QuadPart, 0u);
}

TEST(MemoryStream, ClonesShareContentsAndCopyToEachOther)
{
    const auto stream = CreateMemoryStream({1, 2, 3}, [](const Bytes&) { return S_OK; });
    ComPtr<IStream> clone;
    ASSERT_EQ(stream->Clone(clone.Put()), S_OK);
    EXPECT_EQ(clone->Seek(Move(0), STREAM_SEEK_END, nullptr), S_OK);
    ULARGE_INTEGER read;
    ULARGE_INTEGER written;
    EXPECT_EQ(stream->CopyTo(clone.Get(), Size(2), &read, &written), S_OK);
    EXPECT_EQ(read.QuadPart, 2u);
    EXPECT_EQ(written.QuadPart, 2u);
    EXPECT_EQ(ReadStream(*clone, 10), (Bytes{1, 2, 3, 1, 2}));
    Tests::ExpectFailure(MAPI_E_TOO_BIG, [&] { ReadStream(*clone, 4); });
}

TEST(MemoryStream, ShowsPropertiesAsMapiDoes)
{
    const PropValue text = PropValue::String(PR_BODY_W, L"ab");
    EXPECT_EQ(StreamBytes(text, PT_UNICODE), (Bytes{'a', 0, 'b', 0}));
    EXPECT_EQ(StreamBytes(text, PT_STRING8), (Bytes{'a', 'b'}));
    Tests::ExpectFailure(MAPI_E_INTERFACE_NOT_SUPPORTED,
                         [] { StreamBytes(PropValue::Long(PR_IMPORTANCE, 1), PT_LONG); });
    EXPECT_TRUE(FromStreamBytes(PR_BODY_W, {'a', 0, 'b', 0, 0, 0}) == text);
    EXPECT_EQ(FromStreamBytes(PR_BODY_A, {'a', 0}).AsText(), L"a");
    EXPECT_EQ(FromStreamBytes(PR_BODY_W, {}).AsText(), L"");
}
