// Stands in the helper's place and does nothing, until it is killed or a minute is over.
#include <windows.h>

int main() { Sleep(60000); }
