#include "library/SerialExecutor.h"

SerialExecutor::SerialExecutor()
{
    pool_.setMaxThreadCount(1);
    // Keep the one thread for the executor's lifetime instead of starting a new one after 30 s idle.
    pool_.setExpiryTimeout(-1);
}

SerialExecutor::~SerialExecutor()
{
    pool_.waitForDone();
}

void SerialExecutor::waitForIdle()
{
    pool_.waitForDone();
}
