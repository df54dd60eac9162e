// Writes the editor's description of the node types that this program is linked with (.def).
//   write-definitions PLUGIN CATEGORY

#include <iostream>

#include "nodes/DeclaredNode.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  writeDefinitions(std::cout, declaredNodes(), argv[1], argv[2]);
  return std::cout.flush() ? 0 : 1;
}
