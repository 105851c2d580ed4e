// Every exported header of the library.
#pragma once

#include "qv/api.h"
#include "qv/array.h"
#include "qv/datetime.h"
#include "qv/diagnostic.h"
#include "qv/exception.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/guid.h"
#include "qv/memory.h"
#include "qv/nullable.h"
#include "qv/shared_ptr.h"
#include "qv/singleton.h"
#include "qv/string.h"
