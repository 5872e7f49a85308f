// com_wrap.
#include "support/com_wrap.h"

#include "support/Exceptions.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using Quillon::com_wrap;

TEST(ComWrap, TakesTheReferenceOverThatThePointerCarries)
{
    const Tests::LogCapture log;
    auto object = Tests::MakeNice<Tests::StoreDouble>();
    object->AddRef();
    {
        const ATL::CComQIPtr<IMsgStore> wrapped = com_wrap<IMsgStore>(object.Get());
        EXPECT_EQ(wrapped.p, object.Get());
        EXPECT_EQ(object->References(), 2u);
    }
    EXPECT_EQ(object->References(), 1u);
    EXPECT_THAT(log.Lines(), testing::IsEmpty());
}

TEST(ComWrap, RefusesNullWithOneLine)
{
    const Tests::LogCapture log;
    try
    {
        com_wrap<IMsgStore>(nullptr);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const Quillon::CComError& error)
    {
        EXPECT_EQ(error.GetHResult(), static_cast<HRESULT>(0x80004003));
        EXPECT_THAT(log.Lines(),
                    testing::ElementsAre(Tests::EventAtLine(L"Throwing exception", L"com_wrap.cpp",
                                                            L"Quillon::com_wrap", 6, Tests::Text(error.Format()))));
    }
}
