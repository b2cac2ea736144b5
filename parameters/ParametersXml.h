// A parameter collection in the host's XML stream, in two forms: the value form (every parameter
// with its value as text, its flags and a self-persisting descriptor) and the object form (only
// the parameters whose value persists itself, with that object's own content).
#pragma once

#include "module/interfaces/Parameters.h"
#include "module/interfaces/Streams.h"

// Each one reaches the collection only through its interface slots, so an owner that replaces a
// slot is honoured. Each takes any stream, acts only on one that answers IXMLStream, and returns 0.

// One element per parameter: the short form (name element with the value text) when there are no
// flags and no descriptor to write, else name element holding "Value", "Flags" (when non-zero)
// and the descriptor's object element. PERSIST_COMPACT filters flags and descriptors.
HRESULT PARAMETERSSaveXML(IParametersCreatable* parameters, IDataStream* stream, int32_t mode);
// Updates the parameters the elements name (others are skipped) or, with PERSIST_REBUILD,
// rebuilds the collection from the elements in document order.
HRESULT PARAMETERSLoadXML(IParametersCreatable* parameters, IDataStream* stream, int32_t mode);
// One element per parameter whose value object is an IDataPersist, named after the parameter
// ("Item<n>", counted from 1, when it has no name): "Flags", the object's element and
// "ItemDescriptor" holding the descriptor's element.
HRESULT PARAMETERSSaveXMLObjects(IParametersCreatable* parameters, IDataStream* stream, int32_t mode);
// Reads the object form back; PERSIST_IN_PLACE loads the objects the collection already holds.
HRESULT PARAMETERSLoadXMLObjects(IParametersCreatable* parameters, IDataStream* stream, int32_t mode);

// A value as the text formats write it: a text as it is, a number as ISCreate(value, -1) writes
// it, an object as its IObjectInfo name (the empty text without one); null for a missing value or
// one that holds none of these.
IString* PARAMETERSValueText(IVariant* value);
