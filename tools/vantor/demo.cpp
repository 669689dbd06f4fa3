#include "demo.h"

namespace vantor {

int RunDemo(const DemoOptions&, std::ostream&, std::ostream& err) {
  err << "vantor demo: not available in this build\n";
  return 2;
}

}  // namespace vantor
