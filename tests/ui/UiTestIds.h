// Ids of the window library tests' dialog, menu and strings (UiTest.rc).
#pragma once

#define IDD_UITEST_FORM 100
#define IDD_UITEST_MISSING 199 // no such template

#define IDC_UITEST_CHECK 1001
#define IDC_UITEST_NUMBER 1002
#define IDC_UITEST_NUMBER_SPIN 1003
#define IDC_UITEST_LIST 1004
#define IDC_UITEST_COMBO 1005
#define IDC_UITEST_LABEL 1006
#define IDC_UITEST_BUTTON 1007
#define IDC_UITEST_LONE 1008      // a number field whose spin has no buddy of its own
#define IDC_UITEST_LONE_SPIN 1009

#define IDM_UITEST_SOURCE 200
#define IDM_UITEST_MISSING 299 // no such menu
#define ID_UITEST_THIS_COMPUTER 5
#define ID_UITEST_GPO 6

#define IDS_UITEST_LABEL 300
#define IDS_UITEST_GPO 301
