// Writing the service's events to the Windows event log. Every report goes to the source
// "Vantrel" that the service registers when it starts (the message table it refers to is the
// one VXDA64.DLL carries, generated from resources/VXDA64.mc; its symbolic ids come with this
// header). Reports pass through Seams::pfnReportEvent, so tests record them instead.
//
// The event type follows from the severity bits of the id: 0x6... information, 0xA...
// warning, 0xE... error, 0x0... success. Category 0, no binary data.
#pragma once
#include <windows.h>

#include "VXDA64msg.h"

// The handle of the registered event source (RegisterEventSourceW); null when there is none.
// The service sets it before its threads start and clears it after they have ended, so the
// reporting threads only ever read it.
void SetEventSource(HANDLE hSource);
HANDLE GetEventSource();

// EVENTLOG_SUCCESS, _INFORMATION_TYPE, _WARNING_TYPE or _ERROR_TYPE for a message id.
WORD EventTypeOfId(DWORD id);

// The real report behind Seams::pfnReportEvent: ReportEventW on the registered source. FALSE
// with ERROR_INVALID_HANDLE, and nothing reported, when no source is registered.
BOOL ReportEventToSource(WORD type, DWORD id, WORD nStrings, const wchar_t** strings);

// Each returns the result of the report (nonzero when it was written); callers usually
// ignore it, since there is nowhere else to tell the administrator.
// An event without insertion strings.
BOOL LogEvent(DWORD id);
// The user name as %1; no insertion string when user is null.
BOOL LogEventUser(DWORD id, const wchar_t* user);
// Takes GetLastError() first and reports it as a signed decimal ("%ld"): the user as %1 and the
// code as %2, or the code alone as %1 when user is null.
BOOL LogEventError(DWORD id, const wchar_t* user);
// The number as %1, signed decimal ("%ld").
BOOL LogEventNumber(DWORD id, long number);
