// The time and date tests of the PAC helper object, answered for the
// current time read through the clock seam (Clock().time, localtime,
// gmtime). Each takes the seven argument VARIANTs as the type library hands
// them over: an omitted optional argument is an error variant holding
// DISP_E_PARAMNOTFOUND.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>

constexpr int kRangeArguments = 7;

bool TimeRangeMatches(const VARIANT (&args)[kRangeArguments]);
bool DateRangeMatches(const VARIANT (&args)[kRangeArguments]);
bool WeekdayRangeMatches(const std::wstring &wd1, const std::wstring &wd2,
                         const std::wstring &gmt);
