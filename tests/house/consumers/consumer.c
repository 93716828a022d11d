#include "blac/BLAC.h"

#include <stdio.h>

int main(void) {
  double const a[4] = {1, 3, 2, 4}, b[4] = {5, 7, 6, 8};
  double c[4], one = 1, zero = 0;
  int two = 2;
  BLAC_DGEMM("N", "N", &two, &two, &two, &one, a, &two, b, &two, &zero, c, &two);
  printf("%g %g %g %g\n", c[0], c[1], c[2], c[3]);
  return 0;
}
