/* Built against an installed prefix: proves the headers and libraries ship,
 * and that the headers, the library and the package (its version string in
 * argv[1]) tell one version.
 */
#include <qel.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char **argv) {
  qel_var *v = qel_var_new(QEL_VAR_INT64, 1);
  qel_var_add_long(v, 41);
  qel_var_add_long(v, 1);
  int64_t sum = qel_var_get_long(v, 0) + qel_var_get_long(v, 1);
  qel_var_free(v);
  char version[32];
  snprintf(version, sizeof version, "%d.%d.%d", QEL_VERSION_MAJOR, QEL_VERSION_MINOR, QEL_VERSION_PATCH);
  printf("sum %lld, qel %s (library %d)\n", (long long)sum, version, qel_version());
  return sum == 42 && qel_version() == QEL_VERSION && argc == 2 && strcmp(argv[1], version) == 0 ? 0 : 1;
}
