#include <cstdlib>
#include <exception>
#include <iostream>

#include "refhost/Application.h"
#include "refhost/CommandLine.h"
#include "refhost/base/Log.h"
#include "refhost/capture/PipelineRunner.h"

int main(int argc, char* argv[])
{
    try
    {
        refhost::CommandLine commandLine(std::cout, std::cerr);
        if (!commandLine.parse(argc, argv))
        {
            return commandLine.exitCode();
        }
        refhost::Application application(commandLine.config(), commandLine.warnings());
        const int code = application.run();
        if (refhost::PipelineRunner::abandoned() > 0)
        {
            // Their threads may still use static objects, which returning would destroy.
            std::cout.flush();
            std::_Exit(code);
        }
        return code;
    }
    catch (const std::exception& error)
    {
        refhost::Log::error("ended by an unexpected failure: {}", refhost::Log::safe(error.what()));
        return refhost::exitFailed;
    }
}
