// Include before a header with DEFINE_GUID to define its GUIDs in this file.
#pragma once
#define INITGUID
#include "guiddef.h"
