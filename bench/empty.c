/* An empty program built and linked as hw_start is: what the loader and
 * the C library's start cost any program of this kind. */
int main(void)
{
    return 0;
}
