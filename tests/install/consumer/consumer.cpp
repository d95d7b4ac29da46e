// What a program in C++ outside the tree does first.
#include <cstdio>
#include <zal/zal.hpp>

int main() {
  const zal::Client client;
  zal::Object object;
  object.add("version", ZAL_VERSION_STRING);
  std::puts(object.dump().c_str());
  return ZAL_GetVersion() == ZAL_VERSION ? 0 : 1;
}
