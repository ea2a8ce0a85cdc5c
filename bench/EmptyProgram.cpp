// A program that does nothing, linked to the libraries of the real one: what starting costs at
// least.
int main() {}
