#include "app.h"

int main()
{
    static struct app app;
    return app.xml == nullptr ? 0 : 1;
}
