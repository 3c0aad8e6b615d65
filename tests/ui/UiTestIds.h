// Ids of the window library tests' dialog (UiTest.rc).
#pragma once

#define IDD_UITEST_FORM 100
#define IDD_UITEST_MISSING 199 // no such template
#define IDC_UITEST_CHECK 1001
#define IDC_UITEST_LABEL 1006
