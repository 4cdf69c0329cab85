// tesconv: placeholder until the converter lands.
#include <cstdio>
#include "tessel.h"
int main() {
  char v[16];
  tslVersion(v);
  std::printf("tesconv %s\n", v);
  return 0;
}
