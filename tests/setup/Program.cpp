// A program of which nothing but its version resource counts.
int main()
{
    return 0;
}
