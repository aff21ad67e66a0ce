#include <exception>
#include <iostream>

#include "refhost/Application.h"
#include "refhost/CommandLine.h"
#include "refhost/base/Log.h"

int main(int argc, char* argv[])
{
    try
    {
        refhost::CommandLine commandLine(std::cout, std::cerr);
        if (!commandLine.parse(argc, argv))
        {
            return commandLine.exitCode();
        }
        refhost::Application application(commandLine.config());
        return application.run();
    }
    catch (const std::exception& error)
    {
        refhost::Log::error("ended by an unexpected failure: {}", refhost::Log::safe(error.what()));
        return refhost::exitFailed;
    }
}
