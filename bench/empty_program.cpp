// Does nothing; what it costs is what it is linked to.

int main() {}
