// A host that loads the plug-ins named by its arguments and looks for their node types.
#include <dlfcn.h>

#include <cstdio>

#include "Node.h"

int main(int count, char** plugins) {
  for (int i = 1; i < count; ++i) {
    if (dlopen(plugins[i], RTLD_LAZY | RTLD_GLOBAL)) continue;
    std::printf("%s\n", dlerror());
    return 1;
  }
  const char* const types[] = {"BeamForming",    "ML",
                               "MSNR",           "AudioFrames",
                               "SceneSources",   "NoiseCorrelation",
                               "BackProjection", "SeparatedWriter"};
  for (const char* type : types) {
    if (FD::Node::getFactoryNamed(type)) continue;
    std::printf("no plug-in has the node type %s\n", type);
    return 1;
  }
  return 0;
}
