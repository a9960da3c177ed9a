// Storage for the class, interface and library ids of the PAC helper
// object, declared by the header the type library's compiler writes.
#include <windows.h>
#include <oaidl.h>

#include <initguid.h>

#include "PacHelperTypeLib.h"
