/// \file failing_new.hpp  Makes operator new of the test program run out of memory on request.
#pragma once

namespace tolvenra::test {

/// From now on `count` allocations succeed and all later ones throw std::bad_alloc; below 0: none
/// does.
void fail_after(long count);

}  // namespace tolvenra::test
