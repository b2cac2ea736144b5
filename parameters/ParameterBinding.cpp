#include "parameters/ParameterBinding.h"

#include "module/SmartPtr.h"
#include "module/interfaces/Inputs.h"
#include "module/interfaces/Parameters.h"

namespace {
// Binds the moniker of `input` (when it has a collection moniker) to `collection`, which is asked
// for its named collection by every bind, and only then.
void BindMoniker(IUnknown* input, IUnknown* collection) {
    SmartPtr<IInputParameter> parameter = QueryAs<IInputParameter>(input, IID_IInputParameter);
    if (!parameter) return;
    SmartPtr<IUnknown> moniker;
    if (parameter->get_Moniker(moniker.Out()) < 0) return;
    if (SmartPtr<ICollectionMoniker> bindable = QueryAs<ICollectionMoniker>(moniker.get(), IID_ICollectionMoniker))
        bindable->BindToCollection(QueryAs<INamedCollection>(collection, IID_INamedCollection).get(), 0);
}
}  // namespace

HRESULT ParameterBindParameterDescriptors(IUnknown* parameters, IUnknown* collection) {
    SmartPtr<IParameters> collectionOfParameters = QueryAs<IParameters>(parameters, IID_IParameters);
    if (!collectionOfParameters) return S_OK;
    for (int32_t index = 0;; ++index) {
        SmartPtr<IUnknown> descriptor;
        if (collectionOfParameters->Get(index, nullptr, nullptr, descriptor.Out(), nullptr) < 0) break;
        BindMoniker(descriptor.get(), collection);
    }
    return S_OK;
}

namespace wksdetail {
void BindInputMoniker(IUnknown* input, IUnknown* collection) { BindMoniker(input, collection); }
}  // namespace wksdetail
