// A process that ends with a started package must end at once.
__declspec(dllimport) void StartPackage(void);

int main(void) {
    StartPackage();
    return 0;
}
