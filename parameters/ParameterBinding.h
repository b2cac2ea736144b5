// Binding of the parameters of any collection whose descriptors are inputs.
#pragma once

#include "module/interfaces/Unknown.h"

// For every parameter of `parameters` whose descriptor is an input with a collection moniker,
// binds that moniker to `collection`. Failures of single parameters are skipped. Always 0.
HRESULT ParameterBindParameterDescriptors(IUnknown* parameters, IUnknown* collection);
