// What nearly every test includes, compiled once; a test names all the same what it uses.
#ifdef __cplusplus
#include <algorithm>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>
#endif
