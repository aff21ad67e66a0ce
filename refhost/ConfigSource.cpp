#include "refhost/ConfigSource.h"

#include "refhost/rtsp/connection/TlsAcceptor.h"

namespace refhost
{

ConfigSource::Read ConfigSource::read() const
{
    Read out;
    if (file.empty())
    {
        out.problems.emplace_back("there is nothing to read again: the server was started without --config");
        return out;
    }
    ConfigResult result = ConfigReader::readFile(file);
    for (const ConfigProblem& problem : result.problems)
    {
        out.problems.push_back(problem.toString(file));
    }
    if (!result.config)
    {
        return out;
    }
    for (const ConfigProblem& warning : result.warnings)
    {
        out.warnings.push_back(warning.toString(file));
    }
    for (const auto& [key, value] : overrides)
    {
        const std::string problem = ConfigReader::set(*result.config, key, value);
        if (!problem.empty())
        {
            out.problems.push_back(std::string("--").append(key).append(" ").append(problem));
        }
    }
    if (adjust)
    {
        adjust(*result.config);
    }
    std::string error;
    const TlsConfig& tls = result.config->tls;
    if (tls.enabled() && !tls.selfSigned && TlsAcceptor::open(tls, error) == nullptr)
    {
        out.problems.push_back(file + ": " + error);
    }
    if (out.problems.empty())
    {
        const std::vector<std::string> own = result.config->warnings();
        out.warnings.insert(out.warnings.end(), own.begin(), own.end());
        out.config = std::move(result.config);
    }
    return out;
}

}  // namespace refhost
