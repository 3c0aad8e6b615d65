// Export and import of the settings file. No second serializer: the record is written into the
// "Temp" staging subkey of its own settings key by the ordinary store code, and that subkey is
// written to the file; importing runs the same road backwards. The file therefore holds exactly
// the staging layout, "NotConfigured" and the "ApplyTo" and "Exclude" subkeys included.
#include "base/StrUtil.h"
#include "settings/MyOpts.h"
#include "storage/RegKey.h"
#include "storage/RegXmlTree.h"

namespace {

// Removes the staging subkey; a settings key that cannot be opened for writing is passed over.
void DeleteTemp(MyOpts& opts)
{
    RegKey key(opts.GetRegKeyName(), 1);
    if (key.IsReady())
        key.DelSubKey(BoolOpts::GetTempSubKey());
}

// Raises bReadTemp for the duration of one export or import, and always lowers it again.
struct TempRoad {
    MyOpts& opts;
    explicit TempRoad(MyOpts& o) : opts(o)
    {
        opts.bReadTemp = 1;
        DeleteTemp(opts); // nothing stale goes into the file or comes back from it
    }
    ~TempRoad()
    {
        DeleteTemp(opts);
        opts.bReadTemp = 0;
    }
};

} // namespace

int MyOpts::Export(HWND owner, const wchar_t* path)
{
    TempRoad road(*this);
    StoreTemp();
    RegKey temp(GetRegKeyName(), GetTempSubKey(), 0);
    if (!temp.IsReady())
        return 0;
    return ExportRegKey(owner, temp.GetKey(), path, 1);
}

int MyOpts::Import(HWND owner, const wchar_t* path)
{
    TempRoad road(*this);
    int result;
    {
        RegKey temp(GetRegKeyName(), GetTempSubKey(), 1);
        if (!temp.IsReady())
            return 0;
        result = ImportRegKey(owner, temp.GetKey(), path, 1);
    }
    // Only a file that was read replaces the record: a failed import leaves it as it was.
    if (result)
        LoadTemp();
    return result;
}
