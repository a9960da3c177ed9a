// The Netscape Navigator preferences file of the current user and the
// user_pref lines read from it.
#pragma once

#include <string>

// The full path of the current user's prefs.js, from the Navigator keys of
// the registry; false when a key or value is missing.
bool GetNetscapePrefsFilename(std::string &path);

// The first user_pref("name", <integer>) of the text; false when the name
// does not occur or its first occurrence holds no number.
bool ReadIntegerPreference(const std::string &text, const char *name, int &value);

// The first user_pref("name", "<text>") of the text, up to the next double
// quote; false when absent or when the value is empty.
bool ReadStringPreference(const std::string &text, const char *name, std::string &value);
