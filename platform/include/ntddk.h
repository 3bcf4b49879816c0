// What the driver includes for the kernel's own calls.
#pragma once
#include "ntdef.h"
#include "ntstatus.h"
#include "wdm.h"
#include "wdm_etw.h"
#include "wdm_io.h"
