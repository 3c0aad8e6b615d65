// The file half of IniFile: reading, writing and locating files on Windows.
#include <windows.h>

#include <cstring>
#include <new>

#include "base/Handle.h"
#include "base/StrUtil.h"
#include "storage/IniFile.h"

namespace {

// Larger files are not INI files this program reads; refusing them keeps a damaged or hostile
// file from exhausting memory.
const ULONGLONG kMaxFileBytes = 64ull * 1024 * 1024;

bool WriteAll(HANDLE h, const void* data, DWORD cb)
{
    DWORD written = 0;
    return WriteFile(h, data, cb, &written, nullptr) && written == cb;
}

} // namespace

int IniFile::ReadData()
{
    if (!szPath[0]) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    Handle file(CreateFileW(szPath, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.IsValid())
        return 0;
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.Get(), &size))
        return 0;
    if (size.QuadPart <= 0) {
        SetLastError(ERROR_HANDLE_EOF);
        return 0;
    }
    if ((ULONGLONG)size.QuadPart > kMaxFileBytes) {
        SetLastError(ERROR_FILE_TOO_LARGE);
        return 0;
    }
    DWORD cb = (DWORD)size.QuadPart;
    unsigned cch = cb / 2; // an odd last byte is not a character
    // One zero character more than the text: ReadAll with a length of 0 would otherwise run
    // past a file of a single byte.
    wchar_t* text = new (std::nothrow) wchar_t[cch + 1];
    if (!text) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    memset(text, 0, (cch + 1) * sizeof(wchar_t));
    DWORD got = 0;
    if (!ReadFile(file.Get(), text, cch * sizeof(wchar_t), &got, nullptr)) {
        delete[] text;
        return 0;
    }
    file.Close();
    // A file that shrank since its size was taken: only what was read counts.
    unsigned len = got / 2;
    int ok = len ? ReadAll(text, len) : ReadAll(L"", 0);
    delete[] text;
    return ok;
}

int IniFile::WriteData()
{
    if (!szPath[0]) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    unsigned cch = ProduceText(nullptr);
    if (cch == 0) {
        DeleteFileW(szPath);
        return 1;
    }
    wchar_t* text = new (std::nothrow) wchar_t[(size_t)cch + 1];
    if (!text) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    memset(text, 0, ((size_t)cch + 1) * sizeof(wchar_t));
    unsigned filled = ProduceText(text);
    if (filled < cch)
        cch = filled;

    // A read-only or hidden file is still rewritten, and keeps its attributes afterwards.
    DWORD attrs = GetFileAttributesW(szPath);
    if (attrs != INVALID_FILE_ATTRIBUTES)
        SetFileAttributesW(szPath, FILE_ATTRIBUTE_NORMAL);
    int ok = 0;
    {
        Handle file(CreateFileW(szPath, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file.IsValid()) {
            const BYTE bom[2] = {0xFF, 0xFE};
            ok = WriteAll(file.Get(), bom, sizeof(bom)) && WriteAll(file.Get(), text, cch * sizeof(wchar_t));
        }
    }
    DWORD err = GetLastError();
    if (attrs != INVALID_FILE_ATTRIBUTES)
        SetFileAttributesW(szPath, attrs);
    SetLastError(err);
    delete[] text;
    return ok;
}

int IniFile::FindBootFile(const wchar_t* name)
{
    RegKeyHandle key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Microsoft\\Windows\\CurrentVersion\\Setup", 0, KEY_READ, key.Receive()) !=
        ERROR_SUCCESS)
        return 0;
    // "BootDir" is a short folder ("C:\"): at most 80 bytes are accepted, always terminated.
    wchar_t dir[40 + 1] = {};
    DWORD cb = 80, type = 0;
    LONG r = RegQueryValueExW(key.Get(), L"BootDir", nullptr, &type, (BYTE*)dir, &cb);
    key.Close();
    if (r != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ) || !dir[0]) {
        SetLastError(r != ERROR_SUCCESS ? (DWORD)r : ERROR_FILE_NOT_FOUND);
        return 0;
    }
    wchar_t file[nPathChars];
    StrCopy(file, dir);
    unsigned len = StrLen(file);
    if (file[len - 1] != L'\\')
        StrAppend(file, L"\\");
    StrAppend(file, name);
    DWORD attrs = GetFileAttributesW(file);
    if (attrs == INVALID_FILE_ATTRIBUTES)
        return 0;
    if (attrs & FILE_ATTRIBUTE_DIRECTORY) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    StrCopy(szPath, file);
    return 1;
}
