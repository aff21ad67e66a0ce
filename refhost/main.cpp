#include <cstdlib>
#include <exception>
#include <iostream>

#include "refhost/Application.h"
#include "refhost/CommandLine.h"
#include "refhost/base/Log.h"
#include "refhost/capture/PipelineRunner.h"
#include "refhost/doctor/CheckRunner.h"

int main(int argc, char* argv[])
{
    try
    {
        refhost::CommandLine commandLine(std::cout, std::cerr);
        const bool serves = commandLine.parse(argc, argv);
        const int code =
            serves ? refhost::Application(commandLine.source(), commandLine.config(), commandLine.warnings())
                         .run()
                   : commandLine.exitCode();
        if (refhost::PipelineRunner::abandoned() > 0 || refhost::CheckRunner::abandoned() > 0)
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
