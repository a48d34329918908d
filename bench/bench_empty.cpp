// The start of a program that does nothing: what the monitor's own start is measured by.
int main() {}
