/* Loads the libraries that it is told to, and ends. */

#include <dlfcn.h>

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (!dlopen(argv[i], RTLD_NOW)) {
            return 1;
        }
    }
    return 0;
}
