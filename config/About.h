// The About box of the configuration utility (dialog 122): the product's name, its version as
// the library's version resource gives it, the copyright and a line saying what the product does.
#pragma once
#include <windows.h>

#include "ui/DMDlg.h"
#include "ui/DMStaticHTML.h"

class DlgAbout : public DMDlg {
public:
    DlgAbout();

protected:
    BOOL OnInit() override;

private:
    DMStaticHTML title;
};

// Shows the About box, modally. bLicencePage asks for the licence page, which the main dialog
// allows only when the settings are not imposed by a policy; this edition has no licence page
// (it limits nothing), so the box is the same either way. The argument stays so that the main
// dialog keeps saying when such a page would be allowed.
void DoAbout(HWND owner, BOOL bLicencePage);

// The product version of module's version resource as "major.minor.build.revision" into buf
// (cch characters). Nonzero on success; 0 and an empty buffer when module has no readable
// version resource.
int GetModuleVersionText(HMODULE module, wchar_t* buf, unsigned cch);
