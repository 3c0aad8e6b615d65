#include "base/StrUtil.h"
#include "settings/MyOpts.h"
#include "storage/RegKey.h"

const wchar_t* MyConfig::pszImpExpPath = L"ImpExpPath";
const wchar_t* MyConfig::pszGPOPath = L"GPOPath";
const wchar_t* MyConfig::pszDlgMain = L"DlgMain";

MyConfig::MyConfig() : BoolOpts(L"Config")
{
    szImpExpPath[0] = 0;
    szGPOPath[0] = 0;
    ZeroMemory(&wpDlgMain, sizeof(wpDlgMain));
}

MyConfig::MyConfig(const MyConfig& other) : BoolOpts(other)
{
    StrCopy(szImpExpPath, other.szImpExpPath);
    StrCopy(szGPOPath, other.szGPOPath);
    wpDlgMain = other.wpDlgMain;
}

MyConfig& MyConfig::operator=(const MyConfig& other)
{
    BoolOpts::operator=(other);
    StrCopy(szImpExpPath, other.szImpExpPath);
    StrCopy(szGPOPath, other.szGPOPath);
    wpDlgMain = other.wpDlgMain;
    return *this;
}

void MyConfig::Reset()
{
    BoolOpts::Reset();
    szImpExpPath[0] = 0;
    szGPOPath[0] = 0;
}

// A path is read only when it fits its 260-character field; anything else leaves it empty.
static void ReadPath(RegKey& key, const wchar_t* name, wchar_t* buf)
{
    buf[0] = 0;
    if (key.FindValue(name) && key.GetBinSize(name) <= 520)
        key.GetStr(name, buf, 260, nullptr);
}

void MyConfig::OnLoad(RegKey& key)
{
    ReadPath(key, pszImpExpPath, szImpExpPath);
    ReadPath(key, pszGPOPath, szGPOPath);
    unsigned size = key.GetBinSize(pszDlgMain);
    if (size != 0 && size <= sizeof(wpDlgMain))
        key.GetBin(pszDlgMain, reinterpret_cast<BYTE*>(&wpDlgMain), sizeof(wpDlgMain));
}

void MyConfig::OnStore(RegKey& key)
{
    key.PutStrOrDelEmpty(pszImpExpPath, szImpExpPath, 1);
    key.PutStrOrDelEmpty(pszGPOPath, szGPOPath, 1);
    key.PutBin(pszDlgMain, reinterpret_cast<const BYTE*>(&wpDlgMain), sizeof(wpDlgMain), REG_BINARY);
}
