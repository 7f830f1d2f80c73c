#include "concurrency/base/export.h"
int main() { return Foo() == 4 ? 0 : 1; }
