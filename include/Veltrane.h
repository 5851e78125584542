// The umbrella header: everything an application uses.
#pragma once

#include "Version.h"
#include "foundation/Boxing.h"
#include "foundation/Callbacks.h"
#include "foundation/DataPage.h"
#include "foundation/JSON.h"
#include "foundation/ListConversion.h"
#include "foundation/Log.h"
#include "foundation/Tag.h"
#include "foundation/Value.h"
#include "platform/Server.h"
