/* Compiled as C: the public header must not need C++. */
#include "kel/c/kel.h"

int main(void) {
    /* A null handle is refused by every function without a crash. */
    uint64_t n = 0;
    if (!kelHasException(0)) return 1;
    if (kelGetExceptionStringLength(0, &n) != -1) return 1;
    if (kelResetExceptionString(0) != -1) return 1;
    kelDestory(0);
    return 0;
}
