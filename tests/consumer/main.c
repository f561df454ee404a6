#include <lumr.h>
#include <stdio.h>

int main(void) {
    const LumLibVersion* v = lumrGetLibVersion();
    printf("%d.%d\n", v->versionMajor, v->versionMinor);
    return v->versionMajor == 6 ? 0 : 1;
}
