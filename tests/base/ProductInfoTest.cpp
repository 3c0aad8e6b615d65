// Where the product's records live: the application root key and its overrides.
#include <gtest/gtest.h>

#include "base/ProductInfo.h"

namespace {

TEST(ProductInfo, RecordKeyFollowsRootKeyThenInstanceThenDefault)
{
    ASSERT_EQ(ProductInfo::GetAppRootKey(), nullptr);
    EXPECT_STREQ(ProductInfo::GetAppRegKeyName(), L"HKCU\\Software\\Korvane\\Vantrel\\Vantrel");
    {
        DMApp app(L"HKLM\\SOFTWARE\\Korvane\\Vantrel");
        EXPECT_EQ(DMApp::GetCurrent(), &app);
        EXPECT_STREQ(ProductInfo::GetAppRegKeyName(), L"HKLM\\SOFTWARE\\Korvane\\Vantrel");

        ASSERT_EQ(ProductInfo::PushAppRootKey(L"HKCU\\Software\\VantrelTests\\A"), 1);
        EXPECT_STREQ(ProductInfo::GetAppRegKeyName(), L"HKCU\\Software\\VantrelTests\\A");
        ASSERT_EQ(ProductInfo::PushAppRootKey(L"HKCU\\Software\\VantrelTests\\B"), 1);
        EXPECT_STREQ(ProductInfo::GetAppRegKeyName(), L"HKCU\\Software\\VantrelTests\\B");
        ASSERT_EQ(ProductInfo::PopAppRootKey(), 1);
        EXPECT_STREQ(ProductInfo::GetAppRegKeyName(), L"HKCU\\Software\\VantrelTests\\A");
        ASSERT_EQ(ProductInfo::PopAppRootKey(), 1);
        EXPECT_EQ(ProductInfo::GetAppRootKey(), nullptr);
        EXPECT_STREQ(ProductInfo::GetAppRegKeyName(), L"HKLM\\SOFTWARE\\Korvane\\Vantrel");
    }
    EXPECT_EQ(DMApp::GetCurrent(), nullptr);
    EXPECT_EQ(ProductInfo::PopAppRootKey(), 0) << "a pop without a push changes nothing";
}

TEST(ProductInfo, PushesAreBounded)
{
    int pushed = 0;
    while (ProductInfo::PushAppRootKey(L"HKCU\\X") && pushed < 100)
        ++pushed;
    EXPECT_EQ(pushed, 16);
    while (ProductInfo::PopAppRootKey())
        --pushed;
    EXPECT_EQ(pushed, 0);
    EXPECT_EQ(ProductInfo::GetAppRootKey(), nullptr);
}

TEST(ProductInfo, PolicyKeysCanBeRedirected)
{
    EXPECT_STREQ(ProductInfo::GetLicPolHKLM(), L"HKLM\\SOFTWARE\\Policies\\Korvane\\Vantrel");
    EXPECT_STREQ(ProductInfo::GetLicPolHKCU(), L"HKCU\\SOFTWARE\\Policies\\Korvane\\Vantrel");
    ProductInfo::SetLicPolOverride(L"HKCU\\T\\M", L"HKCU\\T\\U");
    EXPECT_STREQ(ProductInfo::GetLicPolHKLM(), L"HKCU\\T\\M");
    EXPECT_STREQ(ProductInfo::GetLicPolHKCU(), L"HKCU\\T\\U");
    ProductInfo::SetLicPolOverride(nullptr, nullptr);
    EXPECT_STREQ(ProductInfo::GetLicPolHKLM(), L"HKLM\\SOFTWARE\\Policies\\Korvane\\Vantrel");
    EXPECT_STREQ(ProductInfo::GetLicPolKey(), L"SOFTWARE\\Policies\\Korvane\\Vantrel");
}

} // namespace
