// Every interface the module calls or implements.
#pragma once

#include "module/interfaces/Collections.h"
#include "module/interfaces/Component.h"
#include "module/interfaces/Inputs.h"
#include "module/interfaces/Parameters.h"
#include "module/interfaces/Registry.h"
#include "module/interfaces/Streams.h"
#include "module/interfaces/Strings.h"
#include "module/interfaces/Unknown.h"
#include "module/interfaces/Workspace.h"
