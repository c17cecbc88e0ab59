/* The whole interface of the object bus. */
#pragma once

#include "zn/db.h"
#include "zn/ev.h"
#include "zn/guid.h"
#include "zn/init.h"
#include "zn/memory.h"
#include "zn/ob.h"
#include "zn/platform.h"
#include "zn/pr.h"
#include "zn/ps.h"
#include "zn/settings.h"
#include "zn/status.h"
#include "zn/text.h"
#include "zn/trace.h"
#include "zn/type.h"
#include "zn/types.h"
