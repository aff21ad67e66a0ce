// Every user with every action on every camera over every transport: what is permitted is served, and nothing else.

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "tests/refhost/rtsp/connection/RightsFixture.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr std::array<Right, 3> actions{Right::live, Right::playback, Right::talk};
constexpr int cameraCount = 2;

enum class Carrier
{
    udp,
    tcp,
    multicast,
    tls
};
constexpr std::array<Carrier, 4> carriers{Carrier::udp, Carrier::tcp, Carrier::multicast, Carrier::tls};

/// One bit for each action on each camera.
using Rights = unsigned;
constexpr Rights everyRight = 1U << (actions.size() * cameraCount);

bool has(Rights rights, Right action, int camera)
{
    const unsigned bit = static_cast<unsigned>(action) * cameraCount + static_cast<unsigned>(camera) - 1;
    return (rights >> bit & 1U) != 0;
}

GrantsConfig grantsOf(Rights rights)
{
    const auto cameras = [rights](Right action)
    {
        std::string text;
        for (int camera = 1; camera <= cameraCount; ++camera)
        {
            text += has(rights, action, camera) ? (text.empty() ? "" : ",") + std::to_string(camera) : "";
        }
        return text.empty() ? "none" : text;
    };
    return {cameras(Right::live), cameras(Right::playback), cameras(Right::talk), "none"};
}

/// A client: a user, or one who does not log in.
struct Person
{
    std::string name;
    Rights rights = 0;
};

class RightsMatrix : public RightsFixture
{
protected:
    void SetUp() override
    {
        config.users = {user("admin", {})};
        start();
        plain_ = std::make_unique<TestClient>(server->port());
        encrypted_ = std::make_unique<TlsClient>(server->tlsPort());
    }

    /// Every person of the server's users, with every action, camera and transport.
    void tryAll(const std::vector<Person>& people)
    {
        for (const Person& person : people)
        {
            for (const Right action : actions)
            {
                for (int camera = 1; camera <= cameraCount; ++camera)
                {
                    for (const Carrier carrier : carriers)
                    {
                        tryOne(person, action, camera, carrier);
                    }
                }
            }
        }
    }

    void tryOne(const Person& person, Right action, int camera, Carrier carrier)
    {
        if (carrier == Carrier::multicast && action != Right::live)
        {
            return;  // there is none
        }
        ++tried_;
        SCOPED_TRACE(::testing::Message()
                     << "\"" << person.name << "\" (" << person.rights << ") " << nameOf(action)
                     << " of camera " << camera << ", transport " << static_cast<int>(carrier));
        TestClient& client = carrier == Carrier::tls ? *encrypted_ : *plain_;
        const std::string path = pathOf(action, camera, carrier);
        const int refused = person.name.empty() ? 401 : 403;
        const int expected = has(person.rights, action, camera) ? 200 : refused;
        const std::string headers =
            login(person.name) + (action == Right::talk ? requireTalk : std::string());

        const Received described = client.request("DESCRIBE", urlOf(path, carrier), headers);
        const bool watches = has(person.rights, Right::live, camera);
        // The video of a camera is described to those who may talk, and talk-back to nobody else.
        EXPECT_EQ(described.status, action == Right::talk && watches ? 200 : expected);
        EXPECT_EQ(described.body.find("trackID=talk") != std::string::npos,
                  action == Right::talk && expected == 200);

        const std::string trackUrl =
            urlOf(path, carrier) + (action == Right::talk ? "/trackID=talk" : "/trackID=0");
        const Received setup = client.request("SETUP", trackUrl, transportOf(carrier) + headers);
        EXPECT_EQ(setup.status, expected);
        if (setup.status != 200)
        {
            EXPECT_EQ(server->sessionCount(), 0U);
            return;
        }
        ++played_;
        const std::string id = session(setup.session()) + login(person.name);
        EXPECT_EQ(client.request("PLAY", urlOf(path, carrier), id).status, 200);
        EXPECT_EQ(client.request("TEARDOWN", urlOf(path, carrier), id).status, 200);
    }

    static std::string pathOf(Right action, int camera, Carrier carrier)
    {
        const std::string number = std::to_string(camera);
        if (action == Right::playback)
        {
            return "orv/playback/" + number + "_1700000000_1700000060";
        }
        return (carrier == Carrier::multicast ? "orv/multicast/" : "orv/live/") + number + "/0";
    }

    std::string urlOf(const std::string& path, Carrier carrier) const
    {
        return carrier == Carrier::tls ? "rtsps://127.0.0.1:" + std::to_string(server->tlsPort()) + "/" + path
                                       : url(path);
    }

    std::string transportOf(Carrier carrier) const
    {
        switch (carrier)
        {
            case Carrier::udp:
                return udpPorts + std::to_string(port_.port()) + "\r\n";
            case Carrier::multicast:
                return "Transport: RTP/AVP;multicast\r\n";
            default:
                return tcp;
        }
    }

    /// Combinations of an action, a camera and a transport that there are.
    static constexpr int combinations = cameraCount * (4 + 3 + 3);

    UdpPort port_;
    std::unique_ptr<TestClient> plain_;
    std::unique_ptr<TlsClient> encrypted_;
    int tried_ = 0;
    int played_ = 0;
};

TEST_F(RightsMatrix, UsersMayDoWhatTheirGrantsSayAndNothingElse)
{
    std::vector<UserConfig> users;
    std::vector<Person> people;
    for (Rights rights = 0; rights < everyRight; ++rights)
    {
        people.push_back({"u" + std::to_string(rights), rights});
        users.push_back(user(people.back().name, grantsOf(rights)));
    }
    people.push_back({"unlimited", everyRight - 1});
    users.push_back(user("unlimited", {}));
    people.push_back({"", 0});
    server->setUsers(users, {});
    tryAll(people);
    EXPECT_EQ(tried_, combinations * 66);
    EXPECT_EQ(played_, combinations * 33) << "each combination is permitted to half of the users";
}

TEST_F(RightsMatrix, GroupsGiveTheSame)
{
    std::vector<UserConfig> users;
    std::vector<GroupConfig> groups;
    std::vector<Person> people;
    for (Rights bit = 1; bit < everyRight; bit *= 2)
    {
        groups.push_back({"g" + std::to_string(bit), grantsOf(bit)});
    }
    for (Rights rights = 1; rights < everyRight; ++rights)
    {
        std::string names;
        for (Rights bit = 1; bit < everyRight; bit *= 2)
        {
            names += (rights & bit) != 0 ? ", g" + std::to_string(bit) : "";
        }
        people.push_back({"u" + std::to_string(rights), rights});
        users.push_back(user(people.back().name, {}, names.substr(2)));
    }
    server->setUsers(users, groups);
    tryAll(people);
    EXPECT_EQ(tried_, combinations * 63);
    EXPECT_EQ(played_, combinations * 32);
}

TEST_F(RightsMatrix, AnonymousMayDoWhatItsGrantsSayAndTheRestNeedsALogin)
{
    for (Rights rights = 0; rights < everyRight; ++rights)
    {
        server->setUsers({anonymous(grantsOf(rights)), user("other", grantsOf(everyRight - 1 - rights))}, {});
        tryAll({{"", rights}, {"other", everyRight - 1 - rights}});
    }
    EXPECT_EQ(tried_, combinations * 128);
    EXPECT_EQ(played_, combinations * 64);
}

TEST_F(RightsMatrix, WithoutUsersEverythingIsPermitted)
{
    server->setUsers({}, {});
    tryAll({{"", everyRight - 1}});
    EXPECT_EQ(played_, combinations);
}

}  // namespace
}  // namespace test
}  // namespace refhost
