#pragma once
// Map and Unmap of subresource 0 as one scope.
#include <d3d11.h>

#include <cstdint>

namespace xop {

// Maps subresource 0 of `resource` for the guard's lifetime. Unmap runs when
// the guard goes, also after a failed Map: an upload whose Map failed copies
// nothing, leaves the texture's old content and still unmaps. `Context` is
// ID3D11DeviceContext outside tests.
template <class Context>
class BasicScopedMap {
public:
    BasicScopedMap(Context* context, ID3D11Resource* resource, D3D11_MAP type)
        : m_context(context), m_resource(resource), m_result(context->Map(resource, 0, type, 0, &m_mapped)) {}
    ~BasicScopedMap() { m_context->Unmap(m_resource, 0); }
    BasicScopedMap(const BasicScopedMap&) = delete;
    BasicScopedMap& operator=(const BasicScopedMap&) = delete;

    bool Mapped() const { return SUCCEEDED(m_result); }
    uint8_t* Data() const { return static_cast<uint8_t*>(m_mapped.pData); }
    UINT RowPitch() const { return m_mapped.RowPitch; }

private:
    Context* m_context;
    ID3D11Resource* m_resource;
    D3D11_MAPPED_SUBRESOURCE m_mapped = {};
    HRESULT m_result;
};

using ScopedMap = BasicScopedMap<ID3D11DeviceContext>;

}  // namespace xop
