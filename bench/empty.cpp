// A program that does nothing: what starting and ending one costs.
int main() { return 0; }
