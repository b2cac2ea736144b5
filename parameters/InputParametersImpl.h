// InputParametersImpl<T, I>: a parameter collection with declared inputs, binding, saving and
// loading of parameters and inputs together, and replication of the owner.
#pragma once

#include "module/Module.h"
#include "module/Object.h"
#include "parameters/ParameterBinding.h"
#include "parameters/ParametersImpl.h"
#include "text/Conversions.h"

namespace wksdetail {
void BindInputMoniker(IUnknown* input, IUnknown* collection);
}  // namespace wksdetail


template <class T, class I>
class InputParametersImpl : public IParametersImpl<T, I>,
                            public IBindableObject,
                            public IDataPersist,
                            public IReplicableObject {
public:
    // Binds the inputs' collection monikers, then the parameters bound to inputs. Always 0.
    virtual HRESULT Bind(INamedCollection* collection, IUnknown*) override {
        if (SmartPtr<IInputParameters> inputs = QueryAs<IInputParameters>(m_InputParameters.get(), IID_IInputParameters)) {
            int32_t count = 0;
            inputs->get_Count(&count);
            for (int32_t i = 0; i < count; ++i) {
                SmartPtr<IUnknown> input;
                if (inputs->get_Item(i, input.Out()) >= 0) wksdetail::BindInputMoniker(input.get(), collection);
            }
        }
        ParameterBindParameterDescriptors(Self(), collection);
        return S_OK;
    }

    // The stream's kind chooses the form: XML holds only the parameters, compact; a folder holds
    // parameters and inputs, in one folder or in the sections "Parameters" and "Inputs".
    virtual HRESULT Save(IDataStream* stream, int32_t mode) override {
        if (stream == nullptr) return S_OK;
        if (QueryAs<IXMLStream>(stream, IID_IXMLStream)) {
            this->Params_SaveXML(stream, PERSIST_COMPACT);
            return S_OK;
        }
        SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
        if (!folder) return S_OK;
        if (m_UseSections == 0) {
            this->Params_SaveFolderStream(folder.get(), mode | PERSIST_COMPACT);
            if (SmartPtr<IDataPersist> inputs = PersistableInputs()) inputs->Save(folder.get(), mode | PERSIST_COMPACT);
            return S_OK;
        }
        SmartPtr<IFolderStream> parameters = OpenSection(folder.get(), "Parameters");
        this->Params_SaveFolderStream(parameters.get(), mode);
        if (SmartPtr<IFolderStream> section = OpenSection(folder.get(), "Inputs"))
            if (SmartPtr<IDataPersist> inputs = PersistableInputs()) inputs->Save(section.get(), mode | PERSIST_COMPACT);
        return S_OK;
    }

    // A new component of the owner's class with this one's values, flags and inputs; input-bound
    // parameters get input objects of their own.
    virtual HRESULT Replicate(IUnknown** out) override {
        // Left to us: with no place for the copy, none is made; like every failure of a part of
        // this operation, it is not reported.
        if (out == nullptr) return S_OK;
        *out = nullptr;
        SmartPtr<IUnknown> copy;
        IID unknown = IID_IUnknown;
        CObject<T>::_CreateInstance(nullptr, &unknown, copy.OutVoid());
        if (!copy) return S_OK;
        if (SmartPtr<IParameters> target = QueryAs<IParameters>(copy.get(), IID_IParameters)) {
            int32_t count = 0;
            target->get_Count(&count);
            for (int32_t i = 0; i < count; ++i) ReplicateEntry(copy.get(), target.get(), i);
        }
        if (SmartPtr<IInputParameters> targetInputs = QueryAs<IInputParameters>(copy.get(), IID_IInputParameters))
            ReplicateInputs(targetInputs.get());
        *out = copy.Detach();
        return S_OK;
    }

    virtual HRESULT Load(IDataStream* stream, int32_t mode) override {
        if (stream == nullptr) return E_NOTIMPL;
        if (QueryAs<IXMLStream>(stream, IID_IXMLStream)) {
            this->Params_LoadXML(stream, m_UseSections ? mode | PERSIST_REBUILD : mode, 0);
            return S_OK;
        }
        SmartPtr<IFolderStream> folder = QueryAs<IFolderStream>(stream, IID_IFolderStream);
        if (!folder) return E_NOTIMPL;
        if (m_UseSections == 0) {
            this->Params_LoadFolderStream(folder.get(), mode | PERSIST_COMPACT);
            if (SmartPtr<IDataPersist> inputs = PersistableInputs()) inputs->Load(folder.get(), mode);
            return S_OK;
        }
        // A folder without a named view offers no sections: both are skipped.
        SmartPtr<INamedCollection> entries = QueryAs<INamedCollection>(folder.get(), IID_INamedCollection);
        if (!entries) return S_OK;
        if (SmartPtr<IDataStream> parameters = FindSection(entries.get(), "Parameters"))
            this->Params_LoadFolderStream(parameters.get(), mode | PERSIST_REBUILD);
        if (SmartPtr<IDataStream> section = FindSection(entries.get(), "Inputs"))
            if (SmartPtr<IDataPersist> inputs = PersistableInputs()) inputs->Load(section.get(), mode);
        return S_OK;
    }

    // The declared inputs (no new reference).
    IInputParameters* InputParameters() const { return m_InputParameters.get(); }

protected:
    // The inputs collection is made by component name through the host's global collection; it
    // stays null when the host has none.
    InputParametersImpl() {
        static const char kName[] = "InputParameters";
        SmartPtr<IString> name(ISCreate(kName, static_cast<int>(sizeof kName - 1)));
        SmartPtr<IComponentCollection> collection(GLOBALComponents());
        if (!name || !collection) return;
        wchar_t* text = nullptr;
        int32_t length = 0;
        name->GetText(&text, &length);
        collection->CreateComponent(tagREFString{length, text}, &IID_IInputParameters, m_InputParameters.OutVoid());
    }
    ~InputParametersImpl() = default;

    SmartPtr<IInputParameters> m_InputParameters;
    int32_t m_UseSections = 0;

private:
    IUnknown* Self() { return static_cast<I*>(this); }

    // Asked only when the inputs' turn has come, after the parameters are written or read.
    SmartPtr<IDataPersist> PersistableInputs() const { return QueryAs<IDataPersist>(m_InputParameters.get(), IID_IDataPersist); }

    static SmartPtr<IString> SectionName(const char* text) {
        return SmartPtr<IString>(ISCreate(text, static_cast<int>(std::strlen(text))));
    }

    static SmartPtr<IFolderStream> OpenSection(IFolderStream* folder, const char* name) {
        SmartPtr<IFolderStream> child;
        SmartPtr<IString> text = SectionName(name);
        folder->OpenChild(text.get(), 0, child.Out());
        return child;
    }

    static SmartPtr<IDataStream> FindSection(INamedCollection* entries, const char* name) {
        SmartPtr<IString> text = SectionName(name);
        int32_t index = 0;
        if (!text || entries->get_Index(text.get(), &index) < 0) return SmartPtr<IDataStream>();
        SmartPtr<IUnknown> entry;
        entries->get_Item(index, entry.Out());
        return QueryAs<IDataStream>(entry.get(), IID_IDataStream);
    }

    // A new "InputParameter" carrying `source`'s reference, moniker, flags and identifier.
    static SmartPtr<IUnknown> CopyInput(IInputParameter* source) {
        // Made for IInputParameter: that is what the creation hands out.
        SmartPtr<IInputParameter> input(
            static_cast<IInputParameter*>(CreateObject(tagREFString{14, L"InputParameter"}, &IID_IInputParameter)));
        if (!input) return SmartPtr<IUnknown>();
        SmartPtr<IUnknown> reference, moniker;
        source->get_Reference(reference.Out());
        input->put_Reference(reference.get());
        source->get_Moniker(moniker.Out());
        input->put_Moniker(moniker.get());
        int32_t flags = 0;
        source->get_InputFlags(&flags);
        input->put_InputFlags(flags);
        IID iid = IID_NULL;
        source->get_InterfaceID(&iid);
        input->put_InterfaceID(iid);
        SmartPtr<IUnknown> made;
        made.Attach(input.Detach());
        return made;
    }

    void ReplicateEntry(IUnknown* copy, IParameters* target, int32_t i) {
        SmartPtr<IVariant> value;
        this->get_ItemVariant(i, value.Out());
        SmartPtr<IUnknown> descriptor;
        this->get_ItemDescriptor(i, descriptor.Out());
        if (SmartPtr<IInputParameter> input = QueryAs<IInputParameter>(descriptor.get(), IID_IInputParameter))
            descriptor = CopyInput(input.get());
        SmartPtr<IVariant> fresh(CREFString::CreateVariant());
        if (fresh) fresh->put_Object(value.get());
        if (target->put_Item(i, fresh.get()) < 0) {
            if (SmartPtr<IParametersCreatable> creatable = QueryAs<IParametersCreatable>(copy, IID_IParametersCreatable)) {
                SmartPtr<IString> name;
                this->get_ItemName(i, name.Out());
                int32_t flags = 0;
                this->get_ItemFlags(i, &flags);
                creatable->Add(name.get(), value.get(), descriptor.get(), flags);
            }
        } else {
            target->put_ItemDescriptor(i, descriptor.get());
        }
    }

    void ReplicateInputs(IInputParameters* targetInputs) {
        if (!m_InputParameters) return;
        int32_t count = 0;
        m_InputParameters->get_Count(&count);
        for (int32_t i = 0; i < count; ++i) {
            SmartPtr<IUnknown> mine, theirs;
            m_InputParameters->get_Item(i, mine.Out());
            targetInputs->get_Item(i, theirs.Out());
            SmartPtr<IInputParameter> from = QueryAs<IInputParameter>(mine.get(), IID_IInputParameter);
            SmartPtr<IInputParameter> to = QueryAs<IInputParameter>(theirs.get(), IID_IInputParameter);
            if (!from || !to) continue;
            SmartPtr<IUnknown> moniker, reference;
            from->get_Moniker(moniker.Out());
            to->put_Moniker(moniker.get());
            int32_t flags = 0;
            from->get_InputFlags(&flags);
            to->put_InputFlags(flags);
            from->get_Reference(reference.Out());
            to->put_Reference(reference.get());
        }
    }
};
