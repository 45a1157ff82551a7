// An outside program that uses the installed library.
#include <VelmoraVersion.h>
#include <kxMeshGroups.h>
#include <cstdio>

int main()
{
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attr, 3);
    kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(3, 1);
    for (unsigned k = 0; k < 3; ++k)
        ib->GetData()[k] = k;
    kx::kxPointer<kx::kxTriMesh> a = new kx::kxTriMesh(vb, ib);
    kx::kxPointer<kx::kxTriMesh> b = new kx::kxTriMesh(vb, ib);
    kxMeshGroups groups({a.get(), b.get()}, nullptr);
    std::printf("velmora %s, %u groups\n", Velmora::Version::GetDescStringMajorMinorReleaseRevisionDate(),
                groups.getNoGroups());
    return 0;
}
