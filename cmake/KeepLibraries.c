/* Only in builds that look for leaks: the toolkit loads the X libraries itself and unloads them at the end, after
   which what they keep for the process's life would look lost. */

int dlclose (void* library);

int dlclose (void* library)
{
    (void) library;
    return 0;
}
