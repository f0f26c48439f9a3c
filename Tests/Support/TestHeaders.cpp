// Stands for the precompiled header of the tests, whose flags are those of a test program.
int main() { return 0; }
