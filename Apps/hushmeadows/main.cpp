#include <cstdio>

int main()
{
    std::fputs("usage: hushmeadows check [--media] PATH...\n", stderr);
    return 2;
}
