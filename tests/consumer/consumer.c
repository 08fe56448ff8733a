/* Built against an installed prefix: proves the headers and libraries ship. */
#include <qel.h>
#include <stdio.h>

int main(void) {
    qel_var *v = qel_var_new(4, 1);
    qel_var_add_long(v, 41);
    qel_var_add_long(v, 1);
    int64_t sum = qel_var_get_long(v, 0) + qel_var_get_long(v, 1);
    qel_var_free(v);
    printf("sum %lld\n", (long long)sum);
    return sum == 42 ? 0 : 1;
}
