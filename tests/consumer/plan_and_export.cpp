// An outside program on the installed planning API: imports an assembly
// file, plans it, writes the exploded view and prints a one-line summary.
// The library prints nothing of its own unless asked to.
#include <velmora/Explode.h>
#include <velmora/Import.h>
#include <velmora/LogSink.h>
#include <velmora/Report.h>

#include <iostream>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: plan_and_export INPUT OUTPUT.glb\n";
        return 2;
    }
    try {
        unsigned libraryLines = 0;
        velmora::ScopedLogSink count([&](std::string_view) { ++libraryLines; });
        velmora::PlanOptions options;
        options.threads = 2;
        options.hierarchy = true;
        const auto plan = velmora::planAssembly(velmora::importAssembly({argv[1]}), options);
        const velmora::ExplodedView view = velmora::explodeAssembly(*plan, {});
        velmora::writeGlbFile(view.glb, argv[2]);
        const velmora::Json report = velmora::planReport(*plan);
        std::cout << report["parts"].size() << " parts, " << report["contacts"].size() << " contacts, "
                  << view.offsets.size() << " offsets, " << (libraryLines > 0 ? "library lines" : "silent")
                  << "\n";
    } catch (const velmora::InputError& e) {
        std::cerr << "plan_and_export: " << e.what() << "\n";
        return 3;
    }
    return 0;
}
